// The lock over a change of state.
//
// The event loop leaves a state, which restores the plans, and then enters the next one, which
// changes the state record. A handler on another thread that tests the record and rests a change of
// the plans on it must run before both or after both: between them the record names a state whose
// leave has been made, and no later leave would undo the handler's change.
#pragma once

#include "platform/lock.h"

// Held by a handler from its test to the change that rests on it, and by a change of state. A
// thread that has it may take the power policy manager's lock, and not the other way about. Not
// held across a wait, a sleep or a call that calls back.
extern CriticalSection g_state_change;

// Holds the lock from the leave of a state to the change of state that follows, or to the end of
// the pass where none does. For the event loop's thread.
class StateChange
{
public:
    StateChange();
    ~StateChange() { End(); }
    StateChange(const StateChange&) = delete;
    StateChange& operator=(const StateChange&) = delete;

    // The state has changed: releases what an open StateChange of the calling thread holds.
    static void End();

private:
    // Written only by the event loop's thread with the lock held, so that any thread that has it,
    // and the event loop's thread, may read it.
    static bool m_open;
};
