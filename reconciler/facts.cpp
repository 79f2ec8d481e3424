#include "reconciler/facts.h"

#include <atomic>

#include "platform/kernel.h"
#include "platform/power.h"
#include "power/machine_power.h"
#include "power/never_sleep_away_mode.h"
#include "restore/restoring.h"
#include "settings/settings.h"
#include "state/global_events.h"
#include "state/on_ac_power.h"

namespace {

using S = CNeverSleepState;

// What the system has announced of the user. Only the control handler writes it, while it has an
// Activity open; the reconciler reads it in a complete Standstill, when none is open.
std::atomic<UserFacts> g_user;
static_assert(std::atomic<UserFacts>::is_always_lock_free);

UserFacts After(UserNotice notice, UserFacts facts)
{
    switch (notice) {
        case UserNotice::suspend:
            facts.suspended = true;
            facts.present = false;
            break;
        case UserNotice::unattended_resume:
            facts.suspended = false;
            break;
        case UserNotice::attended_resume:
            facts.suspended = false;
            facts.present = true;
            break;
        case UserNotice::away_mode_on:
            facts.away = true;
            facts.present = false;
            break;
        case UserNotice::away_mode_off:
            facts.away = false;
            facts.present = !facts.suspended;
            break;
        case UserNotice::present:
            // A program may turn the display on in away mode, and a notice may arrive late, when
            // the PC is about to sleep.
            if (!facts.away && !facts.suspended) facts.present = true;
            break;
    }
    return facts;
}

std::optional<bool> ReadSource()
{
    constexpr BYTE kOffline = 0;
    constexpr BYTE kOnline = 1;
    SYSTEM_POWER_STATUS status{};
    if (!ReadPowerStatus(&status)) return std::nullopt;
    if (status.ACLineStatus != kOffline && status.ACLineStatus != kOnline) return std::nullopt;
    return status.ACLineStatus == kOnline;
}

// A failed query counts as yes.
bool ReadSleeps()
{
    SYSTEM_POWER_CAPABILITIES capabilities{};
    return CallNtPowerInformation(SystemPowerCapabilities, nullptr, 0, &capabilities,
                                  sizeof(capabilities)) != 0 ||
           capabilities.SystemS3;
}

std::optional<ULONGLONG> TimeTo(GlobalEvent timer)
{
    const ULONGLONG now = GetTickCount64();
    const std::optional<ULONGLONG> due = GlobalTimerDue(timer, now);
    if (!due) return std::nullopt;
    return *due - now;
}

void ReadHours(Facts& facts)
{
    facts.hours_enabled = g_bEnableDoNotDisturb != 0;
    facts.hours = {g_dwDoNotDisturbStart, g_dwDoNotDisturbEnd};
    facts.now = MinutesSinceMidnight();
    facts.in_hours = facts.hours_enabled && facts.hours.Contain(facts.now);
    facts.known_as_in_hours = S::m_bSeenDndStart != FALSE;
    facts.to_start = TimeTo(TIMER_DND_START);
    facts.to_end = TimeTo(TIMER_DND_END);
}

}  // namespace

void NoteUser(UserNotice notice) { g_user = After(notice, g_user); }

UserFacts KnownUser() { return g_user; }

Facts ReadFacts()
{
    Facts facts{};
    facts.user = g_user;
    const auto manager = S::m_pPowerPolicyManager.Get();
    facts.running = manager != nullptr;
    if (!manager) return facts;
    facts.feature_on = g_bEnableNeverSleep != 0;
    facts.state = S::m_eSystemState;
    facts.sleeps = ReadSleeps();
    facts.on_ac = ReadSource();
    facts.known_as_on_ac = g_bOnAcPower != FALSE;
    facts.battery_low = S::m_bBatteryThresholdCrossed != FALSE;
    facts.allowed = S::IsNeverSleepAllowed(S::OnAc()) != FALSE;
    facts.requests_as_allowed = CNeverSleepAwayMode::AreBoth(facts.allowed) != FALSE;
    facts.requests_released = CNeverSleepAwayMode::AreBoth(FALSE) != FALSE;
    facts.idle_time_watched = TimeTo(TIMER_IDLE).has_value();
    ReadHours(facts);
    facts.active_plan = CPowerPolicyManager::GetActiveScheme();
    facts.plans = manager->GetPlans();
    facts.values_left = AreValuesLeft();
    facts.mutes_left = facts.state == S0_NORMAL && AreMutesLeft();
    return facts;
}
