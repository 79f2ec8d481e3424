#include "pc/script.h"

#include <filesystem>
#include <fstream>

std::string ScriptLine::Place() const
{
    return script.empty() ? "line " + std::to_string(number)
                          : script.string() + ":" + std::to_string(number);
}

ScriptError::ScriptError(const ScriptLine& line, const std::string& what)
    : std::runtime_error(line.Place() + ": " + what)
{
}

ExpectationFailed::ExpectationFailed(const ScriptLine& line, const std::string& what)
    : std::runtime_error(line.Place() + ": " + what)
{
}

ScriptLine ReadLine(std::string_view text, const std::filesystem::path& script, int number)
{
    constexpr std::string_view kBlanks = " \t\r";
    ScriptLine line{script, number, {}};
    for (std::size_t at = text.find_first_not_of(kBlanks); at != text.npos && text[at] != '#';
         at = text.find_first_not_of(kBlanks, at)) {
        const bool quoted = text[at] == '"';
        const std::size_t from = quoted ? at + 1 : at;
        const std::size_t to = quoted ? text.find('"', from) : text.find_first_of(kBlanks, from);
        if (quoted && to == text.npos) {
            throw ScriptError(line, "the quotation mark before \"" +
                                        std::string(text.substr(from)) + "\" is never closed");
        }
        const std::size_t end = std::min(to, text.size());
        line.words.emplace_back(text.substr(from, end - from));
        at = quoted ? end + 1 : end;
        if (quoted && at < text.size() && kBlanks.find(text[at]) == kBlanks.npos) {
            throw ScriptError(line, "a blank is missing after \"" + line.words.back() + "\"");
        }
    }
    return line;
}

std::vector<ScriptLine> ReadScript(const std::filesystem::path& script)
{
    std::ifstream file(script);
    if (!file || std::filesystem::is_directory(script)) {
        throw ScriptError(script.string() + ": cannot be read");
    }
    std::vector<ScriptLine> lines;
    int number = 0;
    for (std::string text; std::getline(file, text);) {
        ScriptLine line = ReadLine(text, script, ++number);
        if (!line.words.empty()) lines.push_back(std::move(line));
    }
    return lines;
}
