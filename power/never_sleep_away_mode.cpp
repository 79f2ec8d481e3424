#include "power/never_sleep_away_mode.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <utility>

#include "log/log.h"
#include "platform/lock.h"
#include "platform/owned.h"

HANDLE CNeverSleepAwayMode::m_hAwayModeRequest = INVALID_HANDLE_VALUE;
HANDLE CNeverSleepAwayMode::m_hSystemRequiredRequest = INVALID_HANDLE_VALUE;
BOOL CNeverSleepAwayMode::m_bAwayModeRequested = FALSE;
BOOL CNeverSleepAwayMode::m_bSystemRequiredRequested = FALSE;

// One of the four operations: the request it changes, the wanted state, and its log lines. A null
// text is not logged.
struct CNeverSleepAwayMode::Change
{
    const wchar_t* function;
    HANDLE& request;
    POWER_REQUEST_TYPE type;
    BOOL& requested;
    BOOL wanted;
    const wchar_t* nothing_to_do;
    const wchar_t* no_request;
    DWORD failure_level;
    const wchar_t* failure;
    const wchar_t* success;
};

namespace {

// Held across the check of a flag and the platform call. The system counts sets: if two threads set
// a request, one clear would leave it held.
CriticalSection g_lock;

// What AreBoth answers. Written under the lock. Aligned to its size: for a structure aligned to a
// byte, clang calls a library's function even where the processor needs none.
struct alignas(2) BothRequests
{
    bool set, cleared;
};
std::atomic<BothRequests> g_both = {{false, true}};
static_assert(std::atomic<BothRequests>::is_always_lock_free);

HANDLE CreateRequest()
{
    wchar_t reason[std::size(kRequestReason)];
    std::ranges::copy(kRequestReason, reason);
    REASON_CONTEXT context{};
    context.Version = POWER_REQUEST_CONTEXT_VERSION;
    context.Flags = POWER_REQUEST_CONTEXT_SIMPLE_STRING;
    context.Reason.SimpleReasonString = reason;
    return PowerCreateRequest(&context);
}

}  // namespace

BOOL CNeverSleepAwayMode::Initialize()
{
    const ScopedLock lock(g_lock);
    m_hAwayModeRequest = CreateRequest();
    m_hSystemRequiredRequest = CreateRequest();
    m_bAwayModeRequested = m_bSystemRequiredRequested = FALSE;
    NoteBoth();
    if (m_hAwayModeRequest == INVALID_HANDLE_VALUE ||
        m_hSystemRequiredRequest == INVALID_HANDLE_VALUE) {
        Log(3, L"CNeverSleepAwayMode::Initialize", L"Can't create power request, GLE=%d\n",
            GetLastError());
        return FALSE;
    }
    return TRUE;
}

void CNeverSleepAwayMode::CreateMissing()
{
    const ScopedLock lock(g_lock);
    for (HANDLE* request : {&m_hAwayModeRequest, &m_hSystemRequiredRequest}) {
        if (*request == INVALID_HANDLE_VALUE) *request = CreateRequest();
    }
    NoteBoth();
}

// The control handler's thread may call an operation after Uninitialize. That operation must find
// no handle: a closed handle's number may already stand for another object.
void CNeverSleepAwayMode::Uninitialize()
{
    const ScopedLock lock(g_lock);
    for (HANDLE* request : {&m_hAwayModeRequest, &m_hSystemRequiredRequest}) {
        const OwnedFile closed(std::exchange(*request, INVALID_HANDLE_VALUE));
    }
    NoteBoth();
}

BOOL CNeverSleepAwayMode::Apply(const Change& change)
{
    const ScopedLock lock(g_lock);
    if (change.requested == change.wanted) {
        Log(6, change.function, L"%s", change.nothing_to_do);
        return TRUE;
    }
    if (change.request == INVALID_HANDLE_VALUE) {
        if (change.no_request) Log(6, change.function, L"%s", change.no_request);
        return TRUE;
    }
    const auto apply = change.wanted ? PowerSetRequest : PowerClearRequest;
    if (!apply(change.request, change.type)) {
        Log(change.failure_level, change.function, L"%s, GLE=%d\n", change.failure, GetLastError());
        return FALSE;
    }
    if (change.success) Log(6, change.function, L"%s", change.success);
    change.requested = change.wanted;
    NoteBoth();
    return TRUE;
}

BOOL CNeverSleepAwayMode::EnableAwayMode()
{
    return Apply({L"CNeverSleepAwayMode::EnableAwayMode", m_hAwayModeRequest,
                  PowerRequestAwayModeRequired, m_bAwayModeRequested, TRUE,
                  L"Outstanding away mode request exist, returning.", L"Did not enable away mode",
                  6, L"Unable to request AwayMode", nullptr});
}

BOOL CNeverSleepAwayMode::DisableAwayMode()
{
    return Apply({L"CNeverSleepAwayMode::DisableAwayMode", m_hAwayModeRequest,
                  PowerRequestAwayModeRequired, m_bAwayModeRequested, FALSE,
                  L"No outstanding away mode request to clear, returning.",
                  L"Did not disable away mode", 6, L"Unable to disable AwayMode", nullptr});
}

BOOL CNeverSleepAwayMode::DisableIdleTimer()
{
    return Apply({L"CNeverSleepAwayMode::DisableIdleTimer", m_hSystemRequiredRequest,
                  PowerRequestSystemRequired, m_bSystemRequiredRequested, TRUE,
                  L"Outstanding system required request exist, returning.", nullptr, 2,
                  L"Unable to disable idle timer", L"Idle timer is now controlled by HOLV"});
}

BOOL CNeverSleepAwayMode::EnableIdleTimer()
{
    return Apply({L"CNeverSleepAwayMode::EnableIdleTimer", m_hSystemRequiredRequest,
                  PowerRequestSystemRequired, m_bSystemRequiredRequested, FALSE,
                  L"No outstanding system reuired request to clear, returning.", nullptr, 2,
                  L"Unable to enable idle timer", L"Idle timer is now controlled by OS"});
}

BOOL CNeverSleepAwayMode::AreBoth(BOOL wanted)
{
    return wanted ? g_both.load().set : g_both.load().cleared;
}

void CNeverSleepAwayMode::NoteBoth()
{
    const auto is_set = [](HANDLE request, BOOL requested) {
        return request != INVALID_HANDLE_VALUE && requested;
    };
    const bool away = is_set(m_hAwayModeRequest, m_bAwayModeRequested);
    const bool system = is_set(m_hSystemRequiredRequest, m_bSystemRequiredRequested);
    g_both = {away && system, !away && !system};
}
