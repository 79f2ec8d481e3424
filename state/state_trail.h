// The last changes of state, each with its time, for those who tell of them later: an operation
// goes on for a while after it has changed the state, and may change it again.
#pragma once

#include <cstdint>
#include <vector>

#include "state/never_sleep_state.h"

struct StateNote
{
    ESystemState state;
    std::uint64_t at;  // in the milliseconds of GetTickCount64
};

// The caller holds the lock over a change of state.
void NoteState(ESystemState state);

// How many changes were noted so far, and those from the given number on, the oldest first, as far
// as they are kept. Any thread; takes no lock.
std::uint64_t StatesNoted();
std::vector<StateNote> StateNotesFrom(std::uint64_t number);
// The last one; HOLV_INIT at 0 before the first.
StateNote LastStateNote();
