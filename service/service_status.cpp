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
    if (state == SERVICE_RUNNING) {
        // A stop may have been asked for as soon as one of two threads had reported the service
        // running; the other does not take it back.
        DWORD before = StateOf(*record);
        while (before != SERVICE_STOP_PENDING &&
               !StateOf(*record).compare_exchange_weak(before, state)) {
        }
        if (before == SERVICE_STOP_PENDING) return;
    } else {
        StateOf(*record).exchange(state);
    }
    ReportServiceStatus();
}

void ReportServiceStatus()
{
    SERVICE_STATUS* record = g_pServiceStatus;
    if (!record) return;
    // Another thread may change the state and report it while this one is on the way with the old
    // one: what the manager hears last must be what is so.
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
