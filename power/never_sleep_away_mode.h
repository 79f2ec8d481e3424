// The service's two power requests.
#pragma once

#include "platform/power.h"

// One pair of requests in a process: everything is static. An operation's TRUE means that the
// request is as asked, or that there was nothing to do; FALSE that the system refused, so that the
// same operation tries again when it is next called. Any thread: one lock serialises them.
class CNeverSleepAwayMode
{
public:
    // Creates the requests; neither asks for anything yet. FALSE when one could not be created: the
    // operations on it then do nothing.
    static BOOL Initialize();
    // Drops them, and with them whatever they still ask for. The operations then do nothing.
    static void Uninitialize();

    // Holds, or releases, the away-mode request: a sleep of the system becomes away mode.
    static BOOL EnableAwayMode();
    static BOOL DisableAwayMode();

    // Holds, or releases, the system-required request. The names are from the system's point of
    // view: while the request is held, its idle timer does not put the machine to sleep.
    static BOOL DisableIdleTimer();
    static BOOL EnableIdleTimer();

private:
    struct Change;
    static BOOL Apply(const Change& change);

    static HANDLE m_hAwayModeRequest;
    static HANDLE m_hSystemRequiredRequest;
    static BOOL m_bAwayModeRequested;
    static BOOL m_bSystemRequiredRequested;
};
