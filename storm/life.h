// A life: the deeds of a PC's person, of its programs and of the PC itself, drawn from a seed
// before any is played.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/virtual/core/machine.h"

struct Deed
{
    // The deed's stream of draws, so that leaving out one deed changes no other.
    std::uint64_t id;
    // When it is done at the earliest, since the service was first started, in whole milliseconds.
    virtual_pc::Duration at;
    std::string kind;
    // Commands of the script language. One that the PC refuses has not happened.
    std::vector<std::string> lines;
};

struct Life
{
    virtual_pc::Machine::Options machine;
    // The PC as its user has set it up, before the service is installed.
    std::vector<Deed> home;
    // In the order of their times.
    std::vector<Deed> deeds;
    virtual_pc::Duration span;
    // Which kinds of deeds the swarm has switched on.
    std::vector<std::string> kinds;
};

// The life of a seed. It lasts for `days`, or for a drawn number of days when that is 0.
Life DrawLife(std::uint64_t seed, int days);

// How many days a life of this seed lasts when none are asked for.
int DaysOf(std::uint64_t seed);
