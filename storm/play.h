// Plays a life on a PC of its own, and looks at quiet moments whether the user has what was
// promised.
#pragma once

#include <atomic>
#include <filesystem>
#include <vector>

#include "pc/player.h"
#include "storm/gaps.h"
#include "storm/life.h"
#include "storm/outcome.h"

// Read by the process that waits for the life: the PC's time, which a life that hangs leaves where
// it is.
using Pulse = std::atomic<std::int64_t>;

struct PlayPlan
{
    PlayOptions options;
    const std::vector<Gap>& gaps;
    Pulse* pulse = nullptr;
};

// Lives the life to its end, or to the first finding that no gap explains. One PC may exist in a
// host process at a time. Throws std::runtime_error when the PC cannot be set up or a deed is no
// command.
Outcome Play(const Life& life, const PlayPlan& plan);

// Plays a script as it stands, with the same looks. From its first `say` to its end the places
// are counted at which another thread could run.
Outcome PlayUnderWatch(const std::vector<ScriptLine>& script, const PlayPlan& plan);
