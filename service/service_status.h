// What the service tells the service control manager about itself, apart from the module that owns
// the record, so that the state machine can report without knowing the module.
//
// ServiceMain, the state machine's thread and the control handler report at the same time, and no
// lock makes them wait for one another: the record's changing fields are read and written whole,
// by the operations below.
#pragma once

#include <atomic>

#include "platform/service.h"

// The module's status record, and the handle it is reported with; empty until the service's main
// routine runs.
extern std::atomic<SERVICE_STATUS*> g_pServiceStatus;
extern std::atomic<SERVICE_STATUS_HANDLE> g_hServiceStatus;

// Makes `state` (SERVICE_...) the record's current state and reports the record. Any thread.
// Without a record it does nothing.
void ReportServiceState(DWORD state);

// Reports the record as it is.
void ReportServiceStatus();

// Makes `to` the current state if it is `from`. Whether it was; false without a record.
bool AdvanceServiceState(DWORD from, DWORD to);

// The exit code in a record.
void SetExitCode(SERVICE_STATUS& record, DWORD code);
DWORD ExitCodeOf(SERVICE_STATUS& record);
