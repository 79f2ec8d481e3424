// Monitors the processor usage while never-sleep mode is active, and the battery's charge while the
// PC runs on it.

#include "log/log.h"
#include "platform/kernel.h"
#include "platform/power.h"
#include "power/machine_power.h"
#include "power/power_policy_manager.h"
#include "settings/settings.h"
#include "state/global_events.h"
#include "state/never_sleep_state.h"
#include "state/state_change.h"

namespace {

using S = CNeverSleepState;

constexpr BYTE kOffline = 0;

std::uint64_t UnitsOf(const FILETIME& time)
{
    return std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

// The processor usage in percent, averaged since the system started: a short burst of work does not
// delay HOLV_IDLE. 0 when it cannot be read, and before any time has passed.
DWORD CpuUsage()
{
    FILETIME idle{};
    FILETIME kernel{};
    FILETIME user{};
    if (!GetSystemTimes(&idle, &kernel, &user)) return 0;
    const std::uint64_t total = UnitsOf(kernel) + UnitsOf(user);
    if (total == 0) return 0;
    return static_cast<DWORD>((total - UnitsOf(idle)) * 100 / total);
}

void OnBatteryLow()
{
    S::m_bBatteryThresholdCrossed = TRUE;
    S::ConfigureAwayMode(FALSE);
    S::ConfigureSystemRequired(FALSE);
    LogOutstandingPowerRequests();
    const ScopedLock lock(g_state_change);
    const ESystemState state = S::m_eSystemState;
    if (state == S0_NORMAL || state == HOLV_INIT || !S::m_bInAwayMode) return;
    if (const auto manager = S::m_pPowerPolicyManager.Get()) manager->TransitionFromHolvToS3();
}

}  // namespace

void CNeverSleepState::StartCpuUsageMonitor()
{
    const DWORD seconds = g_dwCpuUsageCheckInterval;
    ArmGlobalTimer(TIMER_CPU_USAGE, -(seconds * kUnitsPerSecond), seconds * 1000, FALSE);
}

void CNeverSleepState::MonitorCpuUsage()
{
    const DWORD usage = CpuUsage();
    const DWORD threshold = g_dwCpuIdleThreshold;
    if (usage >= threshold) return;
    Log(2, L"CNeverSleepState::MonitorCpuUsage",
        L"Amount of CPU usage is %lu which is below the idle threshold %d", usage, threshold);
    CancelGlobalTimer(TIMER_CPU_USAGE);
    SignalGlobalEvent(EVENT_ENTER_IDLE);
}

void CNeverSleepState::StopCpuUsageMonitor()
{
    if (!HasGlobalEvent(TIMER_CPU_USAGE)) return;
    Log(1, L"CNeverSleepState::StopCpuUsageMonitor", L"STOPPING CPU MONITORING");
    CancelGlobalTimer(TIMER_CPU_USAGE);
}

void CNeverSleepState::MonitorBatteryUsage()
{
    if (!g_bEnableNeverSleep) return;
    SYSTEM_POWER_STATUS status{};
    if (ReadPowerStatus(&status)) {
        if (status.ACLineStatus != kOffline) return;
        const DWORD remaining = status.BatteryLifePercent;
        const DWORD threshold = g_dwSuspendBatteryThreshold;
        Log(6, L"CNeverSleepState::MonitorBatteryUsage",
            L"%d battery remaining, threshold set to %d", remaining, threshold);
        if (remaining <= threshold && !m_bBatteryThresholdCrossed) OnBatteryLow();
    }
    ArmGlobalTimer(TIMER_BATTERY_USAGE, -(g_dwBatteryUsageCheckInterval * kUnitsPerSecond), 0,
                   FALSE);
}
