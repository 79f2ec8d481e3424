// The service's two power requests.
#pragma once

#include "platform/power.h"

// The reason that the listing of outstanding requests (powercfg) shows.
inline constexpr const wchar_t kRequestReason[] = L"Orbeq(R) Holv Technology";

// One pair per process: everything is static. An operation returns TRUE when the request is as
// wanted or there is no request to change; FALSE when the system refused, and the next call of the
// operation tries again. Any thread; a lock serialises the operations.
class CNeverSleepAwayMode
{
public:
    // Creates both requests, not set. FALSE when one could not be created: the operations on it
    // then do nothing.
    static BOOL Initialize();
    // Closes the requests, which also clears them. Later operations do nothing.
    static void Uninitialize();

    // Set and clear the away-mode request. While it is set, the system enters away mode instead of
    // sleeping.
    static BOOL EnableAwayMode();
    static BOOL DisableAwayMode();

    // Set (DisableIdleTimer) and clear (EnableIdleTimer) the system-required request. While it is
    // set, the system's idle timer does not put the PC to sleep.
    static BOOL DisableIdleTimer();
    static BOOL EnableIdleTimer();

    // Creates, not set, what Initialize could not.
    static void CreateMissing();

    // Whether both requests are set, or both are not set, as `wanted` says; one that could not be
    // created is not set. Takes no lock.
    static BOOL AreBoth(BOOL wanted);

private:
    struct Change;
    static BOOL Apply(const Change& change);
    static void NoteBoth();

    static HANDLE m_hAwayModeRequest;
    static HANDLE m_hSystemRequiredRequest;
    static BOOL m_bAwayModeRequested;
    static BOOL m_bSystemRequiredRequested;
};
