// The service's two power requests.
#pragma once

#include "platform/base.h"

// One pair of requests in a process: everything is static. TRUE means that the request is as asked,
// or that there was nothing to do.
class CNeverSleepAwayMode
{
public:
    // Creates the requests; neither asks for anything yet.
    static BOOL Initialize();
    // Drops them, and with them whatever they still ask for.
    static void Uninitialize();

    // Holds, or releases, the away-mode request: a sleep of the system becomes away mode.
    static BOOL EnableAwayMode();
    static BOOL DisableAwayMode();

    // Holds, or releases, the system-required request. The names are from the system's point of
    // view: while the request is held, its idle timer does not put the machine to sleep.
    static BOOL DisableIdleTimer();
    static BOOL EnableIdleTimer();
};
