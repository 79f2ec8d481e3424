// Whether the service is installed and runs.
#pragma once

#include "json/utc.h"

enum class ServiceRuns
{
    yes,
    no,
    not_installed,
    unknown,  // the service manager cannot be asked
};

// As the service manager says.
ServiceRuns AskServiceManager();

// Whether a process runs that has the id and was started then. One that may not be asked counts as
// running if the service manager says that the service does: the service runs as the local system.
bool IsProcessAlive(DWORD id, UtcTime started);
