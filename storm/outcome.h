// What has become of a life.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/virtual/base/time.h"

// Something that is not as the user was promised.
struct Finding
{
    std::string promise;
    std::string object;
    std::string promised;
    std::string is;
    virtual_pc::Instant since{};
    virtual_pc::Instant at{};
    std::string clock;  // at that time

    // Two findings with one key are taken for the same fault.
    std::string Key() const { return promise + ", " + object; }
};

using Counts = std::map<std::string, std::uint64_t>;

struct Outcome
{
    // The first finding that no known gap explains; the life ends with it.
    std::optional<Finding> finding;
    Counts gaps;  // the known gaps that it has met, by their names
    virtual_pc::Duration lived{};
    std::uint64_t deeds = 0;  // that have happened
    // How many deeds of the life were due before its end, those of the home not counted.
    std::size_t due = 0;
    Counts situations;
    Counts met;  // pairs of a state and an event, and of a state and a function that failed
    // How many other threads could run at each place that was counted, and how many of these places
    // were within the first instant.
    std::vector<std::size_t> points;
    std::size_t points_at_once = 0;
    // Commands that lead to the same end.
    std::vector<std::string> script;
};

std::string ToJson(const Outcome& outcome);
// Nothing for a text that is no outcome.
std::optional<Outcome> OutcomeOf(const std::string& json);
