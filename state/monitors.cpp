// The processor and battery monitors belong here. Only stopping the processor monitor is done yet:
// nothing starts it, and nothing is measured.
#include "log/log.h"
#include "state/global_events.h"
#include "state/never_sleep_state.h"

void CNeverSleepState::StartCpuUsageMonitor() {}
void CNeverSleepState::MonitorCpuUsage() {}

void CNeverSleepState::StopCpuUsageMonitor()
{
    if (!HasGlobalEvent(TIMER_CPU_USAGE)) return;
    Log(1, L"CNeverSleepState::StopCpuUsageMonitor", L"STOPPING CPU MONITORING");
    CancelGlobalTimer(TIMER_CPU_USAGE);
}

void CNeverSleepState::MonitorBatteryUsage() {}
