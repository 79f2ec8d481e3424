#include "service/service_status.h"

std::atomic<SERVICE_STATUS*> g_pServiceStatus = nullptr;
std::atomic<SERVICE_STATUS_HANDLE> g_hServiceStatus = nullptr;

namespace {

std::atomic_ref<DWORD> StateOf(SERVICE_STATUS& record)
{
    return std::atomic_ref(record.dwCurrentState);
}

SERVICE_STATUS CopyOf(SERVICE_STATUS& record)
{
    SERVICE_STATUS copy{};
    copy.dwServiceType = record.dwServiceType;
    copy.dwCurrentState = StateOf(record);
    copy.dwControlsAccepted = record.dwControlsAccepted;
    copy.dwWin32ExitCode = ExitCodeOf(record);
    return copy;
}

}  // namespace

void ReportServiceState(DWORD state)
{
    SERVICE_STATUS* record = g_pServiceStatus;
    if (!record) return;
    if (state != SERVICE_RUNNING) {
        StateOf(*record).exchange(state);
    } else if (!AdvanceServiceState(SERVICE_START_PENDING, state) &&
               !AdvanceServiceState(state, state)) {
        // Two threads report RUNNING. The manager may send a stop after the first report; the
        // second must not overwrite STOP_PENDING.
        return;
    }
    ReportServiceStatus();
}

void ReportServiceStatus()
{
    SERVICE_STATUS* record = g_pServiceStatus;
    if (!record) return;
    // Another thread may change and report the state while this one reports the old state. Repeat
    // until the reported state is the current one, so that the manager's last report is right.
    SERVICE_STATUS copy{};
    do {
        copy = CopyOf(*record);
        SetServiceStatus(g_hServiceStatus, &copy);
    } while (copy.dwCurrentState != StateOf(*record));
}

bool AdvanceServiceState(DWORD from, DWORD to)
{
    SERVICE_STATUS* record = g_pServiceStatus;
    return record && StateOf(*record).compare_exchange_strong(from, to);
}

void SetExitCode(SERVICE_STATUS& record, DWORD code)
{
    std::atomic_ref(record.dwWin32ExitCode) = code;
}

DWORD ExitCodeOf(SERVICE_STATUS& record) { return std::atomic_ref(record.dwWin32ExitCode); }
