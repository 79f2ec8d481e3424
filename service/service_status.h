// What the service tells the service control manager about itself, apart from the module that owns
// the record, so that the state machine can report without knowing the module.
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
