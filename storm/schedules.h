// Every schedule of a short script with one departure from the fixed order of its threads, or with
// two where the first two deeds meet.
#pragma once

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "storm/storm.h"

struct ScheduleOptions
{
    int jobs = 1;
    bool two = false;  // two departures within the first instant, instead of one anywhere
    // Plays only every so many-th schedule, from one that the seed draws.
    std::uint64_t every = 1;
    std::uint64_t seed = 1;
    PlayOptions play;
};

// Plays each script under its schedules, with the storm's looks, and prints their counts and what
// was found with the command that repeats it. Returns 1 where something was found.
int RunSchedules(const ScheduleOptions& options, const std::vector<std::filesystem::path>& scripts,
                 std::ostream& out);

// The departures in a text as "17:0,23:1". Throws std::invalid_argument.
std::vector<virtual_pc::Scheduler::Departure> DeparturesOf(const std::string& text);
