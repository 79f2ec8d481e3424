#include "pc/vocabulary.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <set>
#include <sstream>

#include "platform/virtual/base/text.h"
#include "platform/virtual/core/faults.h"

using namespace virtual_pc;

namespace {

// The rows are tried in order: the first whose command and argument fit counts.
struct Argument
{
    std::string_view command;  // how the pattern begins; "" for any
    std::string_view name;
    // With bars between them; the first is the example. Only a closed choice is offered as
    // completion.
    std::string_view values;
    bool closed = false;
    Things things = Things::none;
};

constexpr bool kClosed = true;
constexpr std::string_view kStateChoice =
    "HOLV_ACTIVE|S0_NORMAL|HOLV_IDLE|HOLV_DND|HOLV_S3|HOLV_INIT";
constexpr std::string_view kKey = R"(HKLM\Software\Orbeq\Holv\User)";

constexpr Argument kArguments[] = {
    {"", "DATE", "2026-03-02"},
    {"", "TIME", "21:30"},
    {"", "SPAN", "30m"},
    {"", "VERSION", "11|10|8.1|8|7", kClosed},
    {"", "EVENT",
     "EVENT_ENTER_ACTIVE|EVENT_ENTER_S0|EVENT_ENTER_IDLE|EVENT_ENTER_DND|EVENT_LEAVE_DND|"
     "EVENT_SERVICE_STOP|EVENT_REGISTRY_CHANGED|TIMER_IDLE|TIMER_DND_START|TIMER_DND_END|"
     "TIMER_CPU_USAGE|TIMER_BATTERY_USAGE|TIMER_SLEEP",
     kClosed},
    {"", "ON", "off|on", kClosed},
    {"expect service", "STATE", "running|starting|stopping|stopped|absent", kClosed},
    {"expect power", "STATE", "on|off", kClosed},
    {"", "STATE", kStateChoice, kClosed},
    {"ctl", "COMMAND", "status|why|report|restore", kClosed},
    {"try", "COMMAND", "sleep"},
    {"try", "WORD", ""},  // sleep is one word
    {"", "SWITCHES", "-Debug"},
    {"", "VENDOR", "GenuineOrbeq"},
    {"expect log", "TEXT", "\"EnterNormalS0State exit\""},
    {"expect program", "TEXT", "-Embedding"},
    {"expect client", "TEXT", "1"},
    {"", "TEXT", "\"the user goes home\""},
    {"reg", "TYPE", "dword|string|expand|binary", kClosed},
    {"", "KEY", kKey},
    {"reg", "NAME", "MuteAudio"},
    {"expect reg", "NAME", "MuteAudio"},
    {"plan set", "VALUE", "900"},
    {"expect plan", "VALUE", "900"},
    {"", "VALUE", "1"},
    {"reg export", "FILE", "settings.reg"},
    {"", "FILE", "first_day.reg"},
    {"", "PERCENT", "80"},
    {"plan add", "NAME", "Quiet"},
    {"plan", "NAME", "\"Power saver\"", !kClosed, Things::plans},
    {"plan copy", "FROM", "Balanced", !kClosed, Things::plans},
    {"plan rename", "OTHER", "Quiet"},
    {"expect plan", "NAME", "\"Power saver\"", !kClosed, Things::plans},
    {"", "GUID", "E5C6B2A4-0D31-4B7F-9A55-3C1D7E8F9012"},
    {"", "SOURCE", "ac|dc", kClosed},
    {"", "SETTING",
     "sleep-timeout|away-mode|wake-timers|brightness|password-on-wake|processor-min|processor-max",
     kClosed},
    {"", "TYPE", "display|system|away", kClosed},
    {"", "HELD", "held|released", kClosed},
    {"device", "ID", R"(ACPI\QRX5071\2&0)"},
    {"fault", "ERROR", "5"},
    {"", "ERROR", "31"},
    {"", "HOW", "s3|modern|never", kClosed},
    {"driver", "NAME", "\"USB Modem\""},
    {"program add", "NAME", R"("C:\Program Files\Companion\UI.exe")"},
    {"program requires", "NAME", R"("C:\Program Files\Player\Film.exe")"},
    {"program releases", "NAME", R"("C:\Program Files\Player\Film.exe")"},
    {"program", "NAME", "UI.exe", !kClosed, Things::programs},
    {"expect program", "NAME", "UI.exe", !kClosed, Things::programs},
    {"", "LANGUAGE", "english|japanese", kClosed},
    {"pipe reads", "RATE", "100"},
    {"", "RATE", "6/h"},
    {"audio add", "NAME", "Headphones"},
    {"audio", "NAME", "Speakers", !kClosed, Things::endpoints},
    {"expect mute", "NAME", "Speakers", !kClosed, Things::endpoints},
    {"", "FLOW", "render|capture", kClosed},
    {"", "MUTED", "unmuted|muted", kClosed},
    {"", "DEFAULT", "default", kClosed},
    {"", "ROLE", "console|multimedia|communications", kClosed},
    {"", "COUNT", "4"},
    {"slow", "FUNCTION", "WriteFile"},
    {"", "FUNCTION", "PowerSetRequest"},
    {"", "OBJECT", "\"Power saver\"", !kClosed, Things::plans},
    {"", "P", "0.1"},
    {"", "PIPE", "ZYTA_HOLV_IP1", !kClosed, Things::pipes},
    {"pipe", "NAME", "ZYTA_HOLV_IP1", !kClosed, Things::pipes},
    {"session", "NAME", "alice"},
    {"", "OWNER", "alice"},
    {"", "PATH", R"(C:\ProgramData\Orbeq\Holv\HOLVLog.txt)"},
    {"", "TARGET", R"(C:\Windows\win.ini)"},
    {"client use", "NAME", "UI", !kClosed, Things::clients},
    {"", "FEATURE", "E_AUDIO|E_HOLV|E_DND", kClosed},
    {"", "START", "1320"},
    {"", "END", "360"},
    {"", "CODE", "1"},
    {"", "SINK", "A"},
    {"", "REACTION", "listens|cancels|clears|fails|calls-back|leaves", kClosed},
    {"", "EXCEPT", R"("HKLM\SOFTWARE\Orbeq;plan Power saver")"},
    {"", "USER", "alice"},
    {"", "N", "1"},
    {"speed", "X", "600"},
};

const Argument* Find(std::string_view pattern, std::string_view name)
{
    const auto found = std::ranges::find_if(kArguments, [&](const Argument& known) {
        return known.name == name && pattern.starts_with(known.command);
    });
    return found == std::end(kArguments) ? nullptr : &*found;
}

std::vector<std::string> Split(std::string_view values)
{
    std::vector<std::string> parts;
    for (std::size_t from = 0; from <= values.size();) {
        const std::size_t to = std::min(values.find('|', from), values.size());
        parts.emplace_back(values.substr(from, to - from));
        from = to + 1;
    }
    return parts;
}

std::string_view Bare(std::string_view word)
{
    return word.starts_with("[") ? word.substr(1, word.size() - 2) : word;
}

bool IsArgumentName(std::string_view word)
{
    return std::isupper(static_cast<unsigned char>(Bare(word).front())) != 0;
}

std::vector<std::string> PatternWords(std::string_view pattern)
{
    std::istringstream stream{std::string(pattern)};
    return {std::istream_iterator<std::string>(stream), {}};
}

std::string Quoted(const std::string& word)
{
    return word.find(' ') == word.npos || word.starts_with("\"") ? word : "\"" + word + "\"";
}

// The words of a line up to its last, which may be unfinished and is left in `begun`.
std::vector<std::string> WordsBefore(std::string_view line, std::string& begun)
{
    std::vector<std::string> words;
    std::size_t at = 0;
    while (true) {
        at = std::min(line.find_first_not_of(" \t", at), line.size());
        const bool quoted = at < line.size() && line[at] == '"';
        const std::size_t end = quoted ? line.find('"', at + 1) : line.find_first_of(" \t", at);
        if (end >= line.size()) {
            begun = line.substr(at);
            return words;
        }
        words.emplace_back(line.substr(at + (quoted ? 1 : 0), end - at - (quoted ? 1 : 0)));
        at = end + (quoted ? 1 : 0);
    }
}

// Whether the words may be the beginning of a command of this form.
bool Begins(const std::vector<std::string>& form, const std::vector<std::string>& words)
{
    if (words.size() >= form.size()) return false;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (!IsArgumentName(form[i]) && form[i] != words[i]) return false;
    }
    return true;
}

std::vector<std::string> ValuesOf(std::string_view pattern, std::string_view name,
                                  const NamesOf& names)
{
    std::vector<std::string> values;
    if (name == "FUNCTION") {
        for (const Function* function : Function::All()) values.emplace_back(function->name());
    }
    const Argument* argument = Find(pattern, name);
    if (!argument) return values;
    if (argument->closed) values = Split(argument->values);
    if (argument->things != Things::none) values = names(argument->things);
    return values;
}

}  // namespace

std::string ExampleOf(std::string_view pattern)
{
    std::string example;
    for (const std::string& word : PatternWords(pattern)) {
        const Argument* argument = IsArgumentName(word) ? Find(pattern, Bare(word)) : nullptr;
        const std::string value = argument ? Split(argument->values).front() : word;
        if (value.empty()) continue;
        example += (example.empty() ? "" : " ") + value;
    }
    return example;
}

Completion Complete(std::string_view line, const std::vector<std::string_view>& patterns,
                    const NamesOf& names)
{
    Completion completion;
    const std::vector<std::string> words = WordsBefore(line, completion.begun);
    const std::string_view begun =
        std::string_view(completion.begun).substr(completion.begun.starts_with("\"") ? 1 : 0);
    std::set<std::string> found;
    for (const std::string_view pattern : patterns) {
        const std::vector<std::string> form = PatternWords(pattern);
        if (!Begins(form, words)) continue;
        const std::string& next = form[words.size()];
        for (const std::string& value : IsArgumentName(next) ? ValuesOf(pattern, Bare(next), names)
                                                             : std::vector<std::string>{next}) {
            const bool fits = value.size() >= begun.size() &&
                              SameName(FromUtf8(value.substr(0, begun.size())), FromUtf8(begun));
            if (fits) found.insert(Quoted(value));
        }
    }
    completion.words.assign(found.begin(), found.end());
    return completion;
}
