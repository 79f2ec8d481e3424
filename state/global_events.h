// The events and timers that drive the state machine, and the operations by which other threads use
// them.
#pragma once

#include <optional>

#include "platform/kernel.h"

// The slots, in their order of priority: when several are signalled, the lowest is taken first.
enum GlobalEvent : int
{
    // Manual-reset events, which the loop resets after acting on them.
    EVENT_ENTER_S0,
    EVENT_ENTER_ACTIVE,
    EVENT_ENTER_IDLE,
    EVENT_ENTER_DND,
    EVENT_LEAVE_DND,
    EVENT_SERVICE_STOP,
    EVENT_REGISTRY_CHANGED,
    // Waitable timers, which reset when a wait takes them.
    TIMER_IDLE,
    TIMER_DND_START,
    TIMER_DND_END,
    TIMER_CPU_USAGE,
    TIMER_BATTERY_USAGE,
    TIMER_SLEEP,
};

inline constexpr int kFirstTimer = TIMER_IDLE;
inline constexpr int kGlobalEventCount = TIMER_SLEEP + 1;

// Of a timer's due time.
inline constexpr LONGLONG kUnitsPerSecond = 10'000'000;

// The handles; null where one could not be created. Only the state machine's wait uses the array
// directly: it begins after the handles are created and ends before they are closed. All other code
// calls the operations below.
extern HANDLE g_hGlobalEvents[kGlobalEventCount];

// Creates the handles. One that cannot be created is logged and stays null.
void createGlobalEvents();

// Closes and clears the handles that are set.
void closeGlobalEvents();

// The operations below may be called by any thread at any time.

bool HasGlobalEvent(GlobalEvent slot);

// Signals an event. False when there is no such handle.
bool SignalGlobalEvent(GlobalEvent event);

// Resets an event; does nothing without a handle.
void ResetGlobalEvent(GlobalEvent event);

// Arms a timer. `due` is in 100-ns units, negative for a time from now; `periodMs` in milliseconds,
// 0 for a single expiry; with `resume` the timer may wake the PC. FALSE when it could not be armed.
BOOL ArmGlobalTimer(GlobalEvent timer, LONGLONG due, DWORD periodMs, BOOL resume);

// Disarms a timer, and takes back the signal of one that has fallen due unnoticed: a timer falls
// due in a sleep too, and the loop must not act on it after it was cancelled. Does nothing without
// a handle.
void CancelGlobalTimer(GlobalEvent timer);

// When a timer without a period falls due, in the milliseconds of GetTickCount64. Nothing where it
// is not armed or has fallen due by `now`. Takes no lock.
std::optional<ULONGLONG> GlobalTimerDue(GlobalEvent timer, ULONGLONG now);
