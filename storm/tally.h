// What a storm has seen so far; tallies of several storms add up.
#pragma once

#include <filesystem>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "storm/outcome.h"

// One finding, however many lives came to it.
struct Found
{
    Finding finding;
    std::uint64_t seed = 0;  // of the life with the fewest deeds
    std::uint64_t deeds = 0;
    int days = 0;  // asked for, as the life's draws depend on them; 0 for the drawn number
    std::uint64_t lives = 0;
    std::vector<std::string> script;  // shrunk, when it has been
    std::string repeat;               // the command
};

struct Tally
{
    std::uint64_t lives = 0;
    std::uint64_t lives_without_gap = 0;
    std::uint64_t deeds = 0;
    double days = 0;
    double core_seconds = 0;
    Counts gaps;
    Counts situations;
    Counts met;
    std::map<std::string, Found> findings;  // by their keys

    void Add(std::uint64_t seed, int days, const Outcome& outcome);
    void Add(const Tally& other);

    std::string Json() const;
    // Throws std::runtime_error for a file that is no tally.
    static Tally Read(const std::filesystem::path& file);
};

// The whole report: gaps, situations, sizes, and last, where the end of a long log shows them, the
// findings. `details` also lists the pairs.
void Print(const Tally& tally, bool details, std::ostream& out);
