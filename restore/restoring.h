// Restores from the journal what is the user's.
//
// A thing is restored only where it still has a value that the service wrote; where the user or a
// policy has changed it since, it stands. Its entry is removed when it is restored or stands. What
// cannot be restored now (an endpoint that is unplugged, a refused call, no time left) keeps its
// entry, and the next restoring tries again; one that is cut short has done no harm, and is simply
// done again.
#pragma once

#include "platform/base.h"

struct RestoreCounts
{
    int restored = 0;
    int changed_since = 0;
    int kept = 0;  // for the next restoring
};

// Sends the platform device a mode; false when it refuses or there is none.
using TellDeviceMode = bool (*)(DWORD mode);

// Restores everything, and logs how much. Ends after 1.5 seconds at the latest, but for a call that
// takes longer. On any thread; it enters a COM apartment for as long as it needs one.
RestoreCounts RestoreWhatIsTheUsers(TellDeviceMode tellDevice);

// RestoreValuesAfterLeave and RestorePlanAfterReturn restore what the leave of a never-sleep state
// has not put back, and do nothing where it put everything back.

// Restores the values of plans, except those that the service holds as long as it has control. The
// caller has left the state, and has not yet entered another, which would save the plans anew.
void RestoreValuesAfterLeave();

// Whether RestoreValuesAfterLeave has values to restore. In normal use those are values that an
// earlier call failed to restore.
bool AreValuesLeft();

// Whether an active endpoint still has a mute state that the service has written, and how to
// restore those. In normal use an earlier restoring could not reach the endpoint.
bool AreMutesLeft();
void RestoreMutes();

// Restores the active plan, or activates the one that the user has chosen while never-sleep mode
// lasted, and settles the journal. The caller has entered normal use, in which the announcement of
// the plan counts as a choice.
void RestorePlanAfterReturn();
