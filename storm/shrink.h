// Cuts a life with a finding down to the deeds that the finding needs.
#pragma once

#include <chrono>

#include "storm/child.h"
#include "storm/life.h"
#include "storm/outcome.h"

struct Shrunk
{
    Life life;
    Outcome outcome;
    int tries = 0;
};

// Plays a life, in a process of its own.
using LifePlayer = std::function<Outcome(const Life& life, Pulse& pulse)>;

// Leaves deeds out as long as a life without them comes to the same finding, that is one with the
// same key, which no gap explains. Tries stop after `most`. The result is the life as it was where
// it does not repeat.
Shrunk Shrink(const Life& life, const Finding& finding, const LifePlayer& play, int jobs,
              std::chrono::seconds most);
