#include "restore/changes.h"

#include <algorithm>

#include "platform/last_error.h"
#include "restore/journal.h"
#include "restore/present.h"

JournaledChange::JournaledChange(Thing thing, const std::optional<ThingValue>& now,
                                 const ThingValue& to)
    : m_thing(std::move(thing)), m_to(to)
{
    const LastErrorKeeper kept;
    NoteChange(m_thing, now, to);
}

bool JournaledChange::Made(bool made) const
{
    const LastErrorKeeper kept;
    if (made) NoteChanged(m_thing, m_to);
    return made;
}

JournaledChange ChangeOfPlanValue(const GUID& plan, const GUID& setting, BOOL bAc, DWORD value)
{
    const LastErrorKeeper kept;
    std::optional<ThingValue> now = PresentPlanValue(plan, setting, bAc != FALSE);
    // The service leaves a plan with a processor maximum of 100 percent, even if it had a lower
    // one: that is the value to restore.
    constexpr DWORD kFull = 100;
    if (now && IsEqualGUID(setting, GUID_PROCESSOR_THROTTLE_MAXIMUM)) {
        now = ThingValue(std::max(now->number(), kFull));
    }
    return {Thing::PlanValue(plan, setting, bAc), now, ThingValue(value)};
}

JournaledChange ChangeOfActivePlan(const GUID& plan, const std::optional<GUID>& known)
{
    const LastErrorKeeper kept;
    std::optional<ThingValue> now = PresentActivePlan();
    if (!now && known) now = ThingValue(*known);
    return {Thing::ActivePlan(), now, ThingValue(plan)};
}

JournaledChange ChangeOfMute(const std::wstring& id, IAudioEndpointVolume& volume, BOOL muted)
{
    const LastErrorKeeper kept;
    const ThingValue to(DWORD{muted != FALSE});
    // Muting is what never-sleep mode does. It unmutes only where the user wants to hear, which is
    // no change of the user's.
    const std::optional<ThingValue> now = muted ? PresentMute(volume) : to;
    return {Thing::EndpointMute(id), now, to};
}

// The device cannot be asked for its mode. Before the service's first change it is in normal use.
JournaledChange ChangeOfDeviceMode(DWORD mode)
{
    return {Thing::DeviceMode(), ThingValue(DWORD{0}), ThingValue(mode)};
}

BOOL MuteStateOfTheUser(const std::wstring& id, BOOL muted)
{
    const LastErrorKeeper kept;
    const std::optional<JournalEntry> entry = JournalEntryOf(Thing::EndpointMute(id));
    const bool set_by_service = entry && entry->Wrote(ThingValue(DWORD{muted != FALSE}));
    return set_by_service ? entry->was.number() != 0 : muted;
}
