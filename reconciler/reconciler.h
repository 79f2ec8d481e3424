// Leads back to what must hold.
//
// The state machine's operations, each right by itself, can leave a PC in a state that none of them
// ends: the event loop resets an event after its action, so a signal that is raised meanwhile is
// lost; a call of the system fails; a plug is pulled while the PC sleeps. A thread of its own
// compares the facts with a table of what must hold (rules.h), some time after every change, and
// where a rule is broken calls an operation or signals an event that there is. While nothing
// changes it blocks without a time-out.
#pragma once

#include "reconciler/rules.h"

// Starts the thread. Where it cannot be started a line in the log says so, and the service goes on
// without it.
void StartReconciler();

// The last time that a rule was found broken, and what was done then. Any thread.
struct Correction
{
    const Rule* rule = nullptr;  // null for none yet
    ULONGLONG at = 0;            // in the milliseconds of GetTickCount64

    bool operator==(const Correction&) const = default;
};
Correction LastCorrection();

// Ends the thread, and waits for that a bounded time. The global events must still be open.
void EndReconciler();
