#include "state/global_events.h"

#include <atomic>
#include <utility>

#include "log/log.h"
#include "platform/lock.h"
#include "platform/owned.h"

HANDLE g_hGlobalEvents[kGlobalEventCount] = {};

namespace {

// Held while a handle is used, created or closed. The control handler's thread may still run while
// ServiceMain closes the handles, and must not signal a closed one.
CriticalSection g_lock;

// When the timers fall due, in milliseconds; 0 where they are not armed. Written under the lock.
std::atomic<ULONGLONG> g_due[kGlobalEventCount] = {};

bool IsEvent(int slot) { return slot < kFirstTimer; }

}  // namespace

void createGlobalEvents()
{
    for (int slot = 0; slot < kGlobalEventCount; ++slot) {
        const HANDLE created = IsEvent(slot) ? CreateEventW(nullptr, TRUE, FALSE, nullptr)
                                             : CreateWaitableTimerW(nullptr, FALSE, nullptr);
        if (created) {
            const ScopedLock lock(g_lock);
            g_hGlobalEvents[slot] = created;
        } else if (IsEvent(slot)) {
            Log(4, L"createGlobalEvents", L"CreateEvent (%d) failed", slot);
        } else {
            Log(4, L"createGlobalEvents", L"CreateWaitabletimer (%d) failed", slot);
        }
    }
}

void closeGlobalEvents()
{
    const ScopedLock lock(g_lock);
    for (std::atomic<ULONGLONG>& due : g_due) due = 0;
    for (HANDLE& handle : g_hGlobalEvents) {
        const OwnedHandle closed(std::exchange(handle, nullptr));
    }
}

bool HasGlobalEvent(GlobalEvent slot)
{
    const ScopedLock lock(g_lock);
    return g_hGlobalEvents[slot] != nullptr;
}

bool SignalGlobalEvent(GlobalEvent event)
{
    const ScopedLock lock(g_lock);
    if (!g_hGlobalEvents[event]) return false;
    SetEvent(g_hGlobalEvents[event]);
    return true;
}

void ResetGlobalEvent(GlobalEvent event)
{
    const ScopedLock lock(g_lock);
    if (g_hGlobalEvents[event]) ResetEvent(g_hGlobalEvents[event]);
}

BOOL ArmGlobalTimer(GlobalEvent timer, LONGLONG due, DWORD periodMs, BOOL resume)
{
    const ScopedLock lock(g_lock);
    if (!g_hGlobalEvents[timer]) return FALSE;
    LARGE_INTEGER time;
    time.QuadPart = due;
    const BOOL armed = SetWaitableTimer(g_hGlobalEvents[timer], &time, static_cast<LONG>(periodMs),
                                        nullptr, nullptr, resume);
    constexpr LONGLONG kUnitsPerMs = kUnitsPerSecond / 1000;
    if (armed) g_due[timer] = GetTickCount64() + static_cast<ULONGLONG>(-due / kUnitsPerMs);
    return armed;
}

void CancelGlobalTimer(GlobalEvent timer)
{
    const ScopedLock lock(g_lock);
    const HANDLE handle = g_hGlobalEvents[timer];
    if (!handle) return;
    CancelWaitableTimer(handle);
    g_due[timer] = 0;
    // Does not wait: it resets a timer that is signalled.
    WaitForSingleObject(handle, 0);
}

std::optional<ULONGLONG> GlobalTimerDue(GlobalEvent timer, ULONGLONG now)
{
    const ULONGLONG due = g_due[timer];
    if (due <= now) return std::nullopt;
    return due;
}
