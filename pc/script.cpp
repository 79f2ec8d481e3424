#include "pc/script.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace {

// Whether the character at `at` is one that acts on a terminal: of ASCII, or the second byte of
// U+0080 to U+009F in UTF-8.
bool IsControl(std::string_view text, std::size_t at)
{
    const auto byte = static_cast<unsigned char>(text[at]);
    if (byte < 0x20 || byte == 0x7F) return true;
    return byte >= 0x80 && byte < 0xA0 && at > 0 && text[at - 1] == '\xC2';
}

std::string Escaped(char byte)
{
    char text[8];
    std::snprintf(text, sizeof(text), "\\x%02x", static_cast<unsigned char>(byte));
    return text;
}

}  // namespace

std::string Printable(std::string_view text)
{
    std::string printable;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '\n' || text[at] == '\t' || !IsControl(text, at)) {
            printable += text[at];
        } else {
            printable += Escaped(text[at]);
        }
    }
    return printable;
}

std::string ScriptLine::Place() const
{
    return script.empty() ? "line " + std::to_string(number)
                          : script.string() + ":" + std::to_string(number);
}

ScriptError::ScriptError(const ScriptLine& line, const std::string& what)
    : std::runtime_error(Printable(line.Place() + ": " + what))
{
}

ExpectationFailed::ExpectationFailed(const ScriptLine& line, const std::string& what)
    : std::runtime_error(Printable(line.Place() + ": " + what))
{
}

ScriptLine ReadLine(std::string_view text, const std::filesystem::path& script, int number)
{
    constexpr std::string_view kBlanks = " \t\r";
    ScriptLine line{script, number, {}};
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '\t' || text[at] == '\r' || !IsControl(text, at)) continue;
        throw ScriptError(line, "this is no text: it has the byte " + Escaped(text[at]));
    }
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

namespace {

// Editors of Windows put a mark at a file's start.
void SkipByteOrderMark(std::ifstream& file, const std::filesystem::path& script)
{
    char mark[3] = {};
    file.read(mark, sizeof(mark));
    const std::string_view read(mark, static_cast<std::size_t>(file.gcount()));
    if (read.starts_with("\xFF\xFE") || read.starts_with("\xFE\xFF")) {
        throw ScriptError(Printable(script.string()) + ": is UTF-16; save it as UTF-8");
    }
    file.clear();
    if (read != "\xEF\xBB\xBF") file.seekg(0);
}

}  // namespace

std::vector<ScriptLine> ReadScript(const std::filesystem::path& script)
{
    std::ifstream file(script);
    const std::string reason = std::filesystem::is_directory(script) ? "it is a folder"
                               : file                                ? ""
                                      : std::generic_category().message(errno);
    if (!reason.empty()) {
        throw ScriptError(Printable(script.string()) + ": cannot be read: " + reason);
    }
    SkipByteOrderMark(file, script);
    std::vector<ScriptLine> lines;
    int number = 0;
    for (std::string text; std::getline(file, text);) {
        ScriptLine line = ReadLine(text, script, ++number);
        if (!line.words.empty()) lines.push_back(std::move(line));
    }
    return lines;
}
