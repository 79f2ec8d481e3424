// The events and timers that drive the state machine, and the small operations through which every
// other thread reaches them.
#pragma once

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
    // Waitable timers, which the wait that takes them resets.
    TIMER_IDLE,
    TIMER_DND_START,
    TIMER_DND_END,
    TIMER_CPU_USAGE,
    TIMER_BATTERY_USAGE,
    TIMER_SLEEP,
};

inline constexpr int kFirstTimer = TIMER_IDLE;
inline constexpr int kGlobalEventCount = TIMER_SLEEP + 1;

// The handles, null where there is none. Only the state machine's wait reads them as they are: it
// starts after they were created and has ended before they are closed. Everybody else goes through
// the operations below.
extern HANDLE g_hGlobalEvents[kGlobalEventCount];

// Creates the handles. One that cannot be created is logged and stays null.
void createGlobalEvents();

// Closes and clears the handles that are set.
void closeGlobalEvents();

// The operations below may be called by any thread at any time.

bool HasGlobalEvent(GlobalEvent slot);

// Signals an event. False when there is no such handle.
bool SignalGlobalEvent(GlobalEvent event);

// Takes an event's signal back. Nothing happens without a handle.
void ResetGlobalEvent(GlobalEvent event);

// Arms a timer: `due` in 100-ns units, negative for a time from now; `periodMs` in milliseconds,
// 0 for once; with `resume` it may wake the machine. FALSE when it could not be armed.
BOOL ArmGlobalTimer(GlobalEvent timer, LONGLONG due, DWORD periodMs, BOOL resume);

// Disarms a timer. Nothing happens without a handle.
void CancelGlobalTimer(GlobalEvent timer);
