// The storm: many lives, each in a process of its own.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <ostream>

#include "pc/player.h"
#include "storm/tally.h"

struct StormOptions
{
    std::uint64_t seed = 1;  // of the first life; the others follow
    std::uint64_t lives = 100;
    int days = 0;            // of each life; 0: drawn
    double days_in_all = 0;  // above 0: until so many days are lived
    int jobs = 1;
    double minutes = 0;                  // above 0: no life is begun after these
    std::chrono::seconds shrinking{40};  // for each finding
    int shrink_most = 12;                // findings
    std::filesystem::path out;
    std::filesystem::path keep;
    std::filesystem::path gaps;  // the file of known gaps
    bool details = false;
    bool rare_is_red = false;
    PlayOptions play;
};

// Lives the lives, prints what they found, and writes it to `out` where that is given. Returns 0
// without findings, 1 with.
int RunStorm(const StormOptions& options, std::ostream& out);

// Lives one life alone, and prints its finding and its script. `trace` in the play's options has
// every effect.
int RunLife(const StormOptions& options, std::ostream& out);

// Plays the script of each known gap. Returns 1 where one shows nothing any more.
int RunGaps(const StormOptions& options, std::ostream& out);

// Plays scripts with the storm's looks.
int RunWatched(const StormOptions& options, const std::vector<std::filesystem::path>& scripts,
               std::ostream& out);

// Adds up what several storms have written.
int Merge(const StormOptions& options, const std::vector<std::filesystem::path>& files,
          std::ostream& out);
