// Changes of the user's things, with the restore journal written ahead.
//
//     JournaledChange change = ChangeOfPlanValue(plan, setting, bAc, value);
//     if (change.Made(PowerWriteACValueIndex(...) == ERROR_SUCCESS)) ...
#pragma once

#include <optional>

#include "platform/audio.h"
#include "restore/things.h"

// A change that is about to be made. The thread's last error stays as it is.
class JournaledChange
{
public:
    // `now` is the present value; empty where it cannot be read (NoteChange).
    JournaledChange(Thing thing, const std::optional<ThingValue>& now, const ThingValue& to);

    // To be called with whether the change was made. Returns that.
    bool Made(bool made) const;

private:
    const Thing m_thing;
    const ThingValue m_to;
};

JournaledChange ChangeOfPlanValue(const GUID& plan, const GUID& setting, BOOL bAc, DWORD value);
// `known` is the plan that the service last knew as the active one: it counts where the system does
// not tell.
JournaledChange ChangeOfActivePlan(const GUID& plan, const std::optional<GUID>& known);
JournaledChange ChangeOfMute(const std::wstring& id, IAudioEndpointVolume& volume, BOOL muted);
JournaledChange ChangeOfDeviceMode(DWORD mode);

// The user's mute state of an endpoint that is found to have the state `muted`: another one than
// that where the service has set it and could not restore it yet.
BOOL MuteStateOfTheUser(const std::wstring& id, BOOL muted);
