#include "restore/restoring.h"

#include <algorithm>

#include "log/log.h"
#include "platform/kernel.h"
#include "platform/last_error.h"
#include "restore/endpoints.h"
#include "restore/journal.h"
#include "restore/present.h"

namespace {

// At its end a service has a few seconds in all.
constexpr ULONGLONG kLongest = 15'000'000;  // 1.5 s, in 100-ns units

enum class Outcome
{
    restored,
    changed_since,
    kept,
};

// Sets the user's value where `present` is one that the service wrote.
template <class Set>
Outcome Replace(const JournalEntry& entry, const std::optional<ThingValue>& present, Set set)
{
    if (!present) return Outcome::kept;
    if (*present == entry.was) return Outcome::restored;
    if (!entry.Wrote(*present)) return Outcome::changed_since;
    return set() ? Outcome::restored : Outcome::kept;
}

// One restoring, which takes the entries one after the other.
class Restoring
{
public:
    explicit Restoring(TellDeviceMode tellDevice) : m_tell_device(tellDevice) {}

    // The values of plans come before the active plan, so that its activation puts them into
    // effect.
    RestoreCounts Run(std::vector<JournalEntry> entries)
    {
        std::stable_partition(entries.begin(), entries.end(), [](const JournalEntry& entry) {
            return entry.thing.kind == ThingKind::plan_value;
        });
        for (const JournalEntry& entry : entries) {
            if (entry.thing.kind != ThingKind::plan_value) PutPlanIntoEffect();
            Count(entry, Late() ? Outcome::kept : Restore(entry));
        }
        PutPlanIntoEffect();
        RemoveJournalEntries(m_done);
        return m_counts;
    }

private:
    // By a clock that stands while the PC sleeps: one that falls asleep meanwhile has lost no time.
    static ULONGLONG Now()
    {
        ULONGLONG now = 0;
        QueryUnbiasedInterruptTime(&now);
        return now;
    }
    bool Late() const { return Now() - m_start > kLongest; }

    Outcome Restore(const JournalEntry& entry)
    {
        const Thing& thing = entry.thing;
        switch (thing.kind) {
            case ThingKind::plan_value:
                return RestorePlanValue(entry);
            case ThingKind::active_plan:
                return Replace(entry, PresentActivePlan(),
                               [&] { return SetActivePlan(entry.was.guid); });
            case ThingKind::endpoint_mute:
                return RestoreMute(entry);
            case ThingKind::device_mode:
                return m_tell_device && m_tell_device(entry.was.number()) ? Outcome::restored
                                                                          : Outcome::kept;
        }
        return Outcome::kept;
    }

    Outcome RestorePlanValue(const JournalEntry& entry)
    {
        const Thing& thing = entry.thing;
        bool gone = false;
        const auto present = PresentPlanValue(thing.plan, thing.setting, thing.ac, &gone);
        if (gone) return Outcome::changed_since;
        return Replace(entry, present, [&] {
            if (!SetPlanValue(thing.plan, thing.setting, thing.ac, entry.was.number())) {
                return false;
            }
            m_written_plans.push_back(thing.plan);
            return true;
        });
    }

    Outcome RestoreMute(const JournalEntry& entry)
    {
        const OwnedInterface<IAudioEndpointVolume> volume =
            m_endpoints.VolumeOf(entry.thing.endpoint);
        if (!volume) return Outcome::kept;
        return Replace(entry, PresentMute(*volume.Get()), [&] {
            return SUCCEEDED(
                volume.Get()->SetMute(static_cast<BOOL>(entry.was.number()), &GUID_NULL));
        });
    }

    // Activates the active plan anew where its values were written, which takes them into effect.
    void PutPlanIntoEffect()
    {
        if (m_written_plans.empty()) return;
        const std::optional<ThingValue> active = PresentActivePlan();
        const auto is_active = [&](const GUID& plan) { return IsEqualGUID(plan, active->guid); };
        if (active && std::ranges::any_of(m_written_plans, is_active)) SetActivePlan(active->guid);
        m_written_plans.clear();
    }

    void Count(const JournalEntry& entry, Outcome outcome)
    {
        if (outcome == Outcome::restored) ++m_counts.restored;
        if (outcome == Outcome::changed_since) ++m_counts.changed_since;
        if (outcome == Outcome::kept) {
            ++m_counts.kept;
        } else {
            m_done.push_back(entry);
        }
    }

    const TellDeviceMode m_tell_device;
    const ULONGLONG m_start = Now();
    Endpoints m_endpoints;
    std::vector<GUID> m_written_plans;
    std::vector<JournalEntry> m_done;
    RestoreCounts m_counts;
};

// Whether the service holds the value until it gives up control of the plans.
bool IsHeldUnderControl(const Thing& thing)
{
    return IsEqualGUID(thing.setting, GUID_ALLOW_AWAYMODE) ||
           IsEqualGUID(thing.setting, GUID_ALLOW_RTC_WAKE);
}

// Whether a leave of a never-sleep state should have put the thing back, if it is a plan's value.
bool IsOfALeave(const Thing& thing)
{
    return thing.kind == ThingKind::plan_value && !IsHeldUnderControl(thing);
}

bool IsMute(const Thing& thing) { return thing.kind == ThingKind::endpoint_mute; }

std::vector<JournalEntry> EntriesOf(bool (*which)(const Thing&))
{
    std::vector<JournalEntry> entries = JournalEntries();
    std::erase_if(entries, [which](const JournalEntry& entry) { return !which(entry.thing); });
    return entries;
}

RestoreCounts RestoreAndLog(const std::vector<JournalEntry>& entries, TellDeviceMode tellDevice,
                            const wchar_t* function)
{
    const RestoreCounts counts = Restoring(tellDevice).Run(entries);
    Log(1, function,
        L"Restored %d of the user's things, %d were changed since, %d are kept for the next time",
        counts.restored, counts.changed_since, counts.kept);
    return counts;
}

}  // namespace

RestoreCounts RestoreWhatIsTheUsers(TellDeviceMode tellDevice)
{
    const LastErrorKeeper kept;
    RestoreCounts counts;
    const std::vector<JournalEntry> entries = JournalEntries();
    if (!entries.empty()) counts = RestoreAndLog(entries, tellDevice, L"RestoreWhatIsTheUsers");
    ForgetUnread([](const Thing&) { return true; });
    SettleJournal();
    return counts;
}

bool AreValuesLeft() { return !EntriesOf(IsOfALeave).empty(); }

void RestoreValuesAfterLeave()
{
    const LastErrorKeeper kept;
    const std::vector<JournalEntry> entries = EntriesOf(IsOfALeave);
    if (!entries.empty()) RestoreAndLog(entries, nullptr, L"RestoreValuesAfterLeave");
    ForgetUnread(IsOfALeave);
}

bool AreMutesLeft()
{
    const LastErrorKeeper kept;
    if (KeptMutes() == 0) return false;
    Endpoints endpoints;
    return std::ranges::any_of(EntriesOf(IsMute), [&](const JournalEntry& entry) {
        const auto volume = endpoints.VolumeOf(entry.thing.endpoint);
        const auto present = volume ? PresentMute(*volume.Get()) : std::nullopt;
        return present && *present != entry.was && entry.Wrote(*present);
    });
}

void RestoreMutes()
{
    const LastErrorKeeper kept;
    const std::vector<JournalEntry> entries = EntriesOf(IsMute);
    if (!entries.empty()) RestoreAndLog(entries, nullptr, L"RestoreMutes");
    SettleJournal();
}

void RestorePlanAfterReturn()
{
    const LastErrorKeeper kept;
    const std::optional<JournalEntry> plan = JournalEntryOf(Thing::ActivePlan());
    if (plan) RestoreAndLog({*plan}, nullptr, L"RestorePlanAfterReturn");
    SettleJournal();
}
