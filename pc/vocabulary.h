// What the arguments of commands may be, for examples and for completion at the prompt.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "pc/commands.h"

// A command of the pattern, with an example of each argument.
std::string ExampleOf(std::string_view pattern);

// Things that the PC has, by name.
enum class Things
{
    none,
    plans,
    endpoints,
    programs,
    clients,
    pipes,
};
using NamesOf = std::function<std::vector<std::string>(Things)>;

// What may stand at the end of an unfinished line.
struct Completion
{
    // The last word's beginning, as it was typed, with a quotation mark where it has one.
    std::string begun;
    // The words that it may become, with quotation marks where they need them, in order.
    std::vector<std::string> words;
};

// `commands` are the patterns that may be typed, and `names` tells the names of things.
Completion Complete(std::string_view line, const std::vector<std::string_view>& patterns,
                    const NamesOf& names);
