// Reports the service's state to the service control manager. Separate from the module, which owns
// the record, so that the state machine can report without including the module.
//
// ServiceMain, the state machine's thread and the control handler may report at the same time.
// There is no lock: the operations below read and write the record's changing fields atomically.
#pragma once

#include <atomic>

#include "platform/service.h"

// The module's status record, and the handle it is reported with; empty until the service's main
// routine runs.
extern std::atomic<SERVICE_STATUS*> g_pServiceStatus;
extern std::atomic<SERVICE_STATUS_HANDLE> g_hServiceStatus;

// Makes `state` (SERVICE_...) the record's current state and reports the record, except that
// RUNNING replaces START_PENDING only. Any thread. Does nothing without a record.
void ReportServiceState(DWORD state);

// Reports the record unchanged.
void ReportServiceStatus();

// Changes the current state from `from` to `to` without reporting it. Returns whether it was
// `from`; false without a record.
bool AdvanceServiceState(DWORD from, DWORD to);

// The exit code in a record.
void SetExitCode(SERVICE_STATUS& record, DWORD code);
DWORD ExitCodeOf(SERVICE_STATUS& record);
