// The Windows service in the service control manager's database. What fails is also shown in a
// message box: this runs from an installer's command line.
#pragma once

#include "platform/base.h"

// FALSE also when the manager cannot be asked.
BOOL IsInstalled();

// Creates the service unless it is there. It starts with the system, from this executable.
BOOL InstallService();

// Stops and deletes the service if it is there. The stop is not waited for: until it is done, the
// service is only marked for deletion, and cannot be created again.
BOOL Uninstall();
