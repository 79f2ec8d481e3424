#include "pc/commands.h"
#include "pc/service_view.h"
#include "pc/vocabulary.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/registry/registry.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <iomanip>
#include <iterator>
#include <optional>
#include <sstream>

using namespace virtual_pc;

namespace {

std::vector<std::string> WordsOf(std::string_view pattern)
{
    std::istringstream stream{std::string(pattern)};
    return {std::istream_iterator<std::string>(stream), {}};
}

bool IsOptional(const std::string& word) { return word.front() == '['; }
bool IsArgument(const std::string& word)
{
    return IsOptional(word) || std::isupper(static_cast<unsigned char>(word.front()));
}

// The arguments of a line that has this form; nothing when it does not.
std::optional<Arguments> Match(std::string_view pattern, const std::vector<std::string>& words)
{
    const std::vector<std::string> form = WordsOf(pattern);
    if (words.size() > form.size()) return std::nullopt;
    Arguments arguments;
    for (std::size_t i = 0; i < form.size(); ++i) {
        const bool there = i < words.size();
        if (!there && !IsOptional(form[i])) return std::nullopt;
        if (IsArgument(form[i])) {
            arguments.push_back(there ? words[i] : "");
        } else if (words[i] != form[i]) {
            return std::nullopt;
        }
    }
    return arguments;
}

std::string FirstWord(std::string_view pattern)
{
    return std::string(pattern.substr(0, pattern.find(' ')));
}

void Append(std::vector<Command>& commands, std::vector<Command> more)
{
    commands.insert(commands.end(), more.begin(), more.end());
}

}  // namespace

const std::vector<Command>& AllCommands()
{
    static const std::vector<Command> commands = [] {
        std::vector<Command> all;
        Append(all, LifeCommands());
        Append(all, ServiceCommands());
        Append(all, CtlCommands());
        Append(all, RegistryCommands());
        Append(all, PowerCommands());
        Append(all, SleepCommands());
        Append(all, SessionCommands());
        Append(all, AudioCommands());
        Append(all, FaultCommands());
        Append(all, UnkindCommands());
        Append(all, ClientCommands());
        Append(all, ExpectCommands());
        Append(all, ShowCommands());
        Append(all, RememberCommands());
        return all;
    }();
    return commands;
}

Action Bind(const ScriptLine& line)
{
    std::string forms;
    for (const Command& command : AllCommands()) {
        if (const auto arguments = Match(command.pattern, line.words)) {
            return command.bind(line, *arguments);
        }
        if (FirstWord(command.pattern) == line.words.front()) {
            forms += "\n    " + std::string(command.pattern);
        }
    }
    if (forms.empty())
        throw ScriptError(line, "there is no command \"" + line.words.front() + "\"");
    throw ScriptError(line,
                      "\"" + line.words.front() + "\" is used in one of these forms:" + forms);
}

bool PrintHelp(std::ostream& out, std::string_view word)
{
    bool known = false;
    for (const Command& command : AllCommands()) {
        if (!word.empty() && FirstWord(command.pattern) != word) continue;
        known = true;
        out << std::left << std::setw(44) << command.pattern << command.help << "\n";
        if (!word.empty()) out << "    " << ExampleOf(command.pattern) << "\n";
    }
    if (!known) out << "there is no command \"" << Printable(word) << "\"\n";
    return known;
}

// --- Arguments ---

Duration DurationOf(const ScriptLine& line, std::string_view text)
{
    static const std::vector<std::pair<std::string_view, Duration>> kUnits = {
        {"ms", 1ms}, {"d", 24h}, {"h", 1h}, {"m", 1min}, {"s", 1s}};
    const auto fail = [&] {
        throw ScriptError(line, "\"" + std::string(text) + "\" is no time span, like 30m or 1h30m");
    };
    Duration total{0};
    if (text.empty()) fail();
    for (std::string_view rest = text; !rest.empty();) {
        std::int32_t number = 0;
        const auto parsed = std::from_chars(rest.data(), rest.data() + rest.size(), number);
        if (parsed.ec != std::errc{} || number < 0) fail();
        constexpr Duration kLongest = 24h * 366 * 100;
        rest.remove_prefix(static_cast<std::size_t>(parsed.ptr - rest.data()));
        const auto unit = std::ranges::find_if(
            kUnits, [&](const auto& known) { return rest.starts_with(known.first); });
        if (unit == kUnits.end()) fail();
        if (number > (kLongest - total) / unit->second) {
            throw ScriptError(line, "\"" + std::string(text) + "\" is longer than a hundred years");
        }
        total += number * unit->second;
        rest.remove_prefix(unit->first.size());
    }
    return total;
}

std::uint32_t NumberOf(const ScriptLine& line, std::string_view text)
{
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    const std::string_view digits = hex ? text.substr(2) : text;
    std::uint32_t number = 0;
    const char* end = digits.data() + digits.size();
    const auto parsed = std::from_chars(digits.data(), end, number, hex ? 16 : 10);
    if (parsed.ec != std::errc{} || parsed.ptr != end) {
        throw ScriptError(line, "\"" + std::string(text) + "\" is no number of up to 32 bits");
    }
    return number;
}

double RateOf(const ScriptLine& line, std::string_view text)
{
    double rate = -1;
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, rate);
    if (parsed.ec != std::errc{} || parsed.ptr != end || rate <= 0 || rate > 1) {
        throw ScriptError(line, "\"" + std::string(text) + "\" is no rate above 0 and up to 1");
    }
    return rate;
}

std::size_t ChoiceOf(const ScriptLine& line, std::string_view text,
                     const std::vector<std::string_view>& choices)
{
    const auto found = std::ranges::find(choices, text);
    if (found != choices.end()) return static_cast<std::size_t>(found - choices.begin());
    std::string list;
    for (const std::string_view choice : choices) list += " " + std::string(choice);
    throw ScriptError(line, "\"" + std::string(text) + "\" is none of:" + list);
}

std::int32_t StateOf(const ScriptLine& line, std::string_view text)
{
    if (const auto state = StateOf(text)) return *state;
    std::string names;
    for (std::int32_t state = 0; !StateNameOf(state).empty(); ++state) {
        names += " " + ToUtf8(StateNameOf(state));
    }
    throw ScriptError(line, "\"" + std::string(text) + "\" is no state; they are:" + names);
}

std::wstring KeyOf(const ScriptLine& line, std::string_view text)
{
    std::wstring key = FromUtf8(text);
    try {
        Registry::Parse(key);
    } catch (const std::invalid_argument& error) {
        throw ScriptError(line, error.what());
    }
    return key;
}
