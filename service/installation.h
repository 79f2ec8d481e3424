// Installs and removes the Windows service in the service control manager's database. Failures to
// open, create, stop or delete it are also shown in a message box, because this runs from an
// installer's command line.
#pragma once

#include "platform/base.h"

// FALSE also when the service control manager cannot be opened.
BOOL IsInstalled();

// Creates the service if it does not exist, to start with the system from this executable. TRUE
// when it exists afterwards.
BOOL InstallService();

// Stops and deletes the service if it exists. Does not wait for the stop: until the service has
// stopped, it is only marked for deletion and cannot be created again.
BOOL Uninstall();
