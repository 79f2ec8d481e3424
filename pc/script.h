// Scripts: one command a line, '#' for comments, quotes around blanks.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

struct ScriptLine
{
    std::filesystem::path script;  // empty for a line that was typed
    int number = 0;
    std::vector<std::string> words;

    // "SCRIPT:LINE"
    std::string Place() const;
};

// The text as a terminal may show it: control characters, but for line ends and tabs, become \x1b
// and the like.
std::string Printable(std::string_view text);

// A script that cannot be read or understood. The text begins with the place.
class ScriptError : public std::runtime_error
{
public:
    ScriptError(const ScriptLine& line, const std::string& what);
    using std::runtime_error::runtime_error;
};

// An assertion that has failed. The text begins with the place.
class ExpectationFailed : public std::runtime_error
{
public:
    ExpectationFailed(const ScriptLine& line, const std::string& what);
};

// Splits a line into words; nothing for a blank line or a comment. Throws ScriptError, also for
// control characters, which no text has.
ScriptLine ReadLine(std::string_view text, const std::filesystem::path& script, int number);

// The lines of a script, without empty ones and comments; a byte-order mark of UTF-8 is skipped.
// Throws ScriptError.
std::vector<ScriptLine> ReadScript(const std::filesystem::path& script);
