// Known gaps: what the storm finds and the service is not yet the better for. Each has a reason,
// and a script of its own that shows it.
#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "storm/outcome.h"

struct Gap
{
    std::string name;
    // The promise, and the object with * for any text.
    std::string promise;
    std::string object;
    // The deeds that lead to it, in their order, as the beginnings of commands. All must have been
    // done within `hours` before the finding.
    std::vector<std::string> deeds;
    int hours = 26;
    std::string reason;
    std::filesystem::path script;
};

// A command of the life, and when it was done.
using Done = std::pair<virtual_pc::Instant, std::string>;

// Reads the file of gaps; their scripts lie in the folder gaps beside it. Throws
// std::runtime_error, with the line, for one that cannot be understood.
std::vector<Gap> ReadGaps(const std::filesystem::path& file);

// The gap that explains the finding, after these commands; null for none.
const Gap* Explains(const std::vector<Gap>& gaps, const Finding& finding,
                    const std::vector<Done>& done);

// The commands by which the storm's person puts what a finding has found right; none when a person
// cannot.
std::vector<std::string> PuttingRight(const Finding& finding);

// What `holvpc run` can expect in the finding's place; "" when no command expects it.
std::string Expectation(const Finding& finding);
