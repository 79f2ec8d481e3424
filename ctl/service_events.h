// What the service has reported to the event log.
#pragma once

#include <string>
#include <vector>

#include "json/utc.h"
#include "platform/eventlog.h"

struct ServiceEvent
{
    UtcTime utc = 0;  // in whole seconds
    WORD type = EVENTLOG_SUCCESS;
    std::wstring function = {};  // that reported it
    std::wstring message = {};   // without a line end
};

struct ServiceEvents
{
    std::vector<ServiceEvent> events;  // in the order in which they were reported
    DWORD error = ERROR_SUCCESS;       // why the log could not be read to its end
};

ServiceEvents ReadServiceEvents();
