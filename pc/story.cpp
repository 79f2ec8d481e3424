#include "pc/story.h"
#include "platform/virtual/base/text.h"

using namespace virtual_pc;

namespace {

struct Telling
{
    std::string_view kind;
    // Returns "" for an effect that a person would not notice.
    std::string (*tell)(const Effect& effect);
};

struct StateWords
{
    std::wstring_view name;
    std::string_view words;
};
constexpr StateWords kStateWords[] = {
    {L"S0_NORMAL", "normal use"},
    {L"HOLV_ACTIVE", "never-sleep mode, active"},
    {L"HOLV_IDLE", "never-sleep mode, idle"},
    {L"HOLV_DND", "never-sleep mode, do not disturb"},
    {L"HOLV_S3", "asleep"},
    {L"HOLV_INIT", "the service rests"},
};

std::string TellState(const Effect& effect)
{
    const std::wstring to = effect.Text("to");
    for (const StateWords& state : kStateWords) {
        if (state.name != to) continue;
        return std::string(state.words) + " (" + ToUtf8(to) + ", from " +
               ToUtf8(effect.Text("from")) + ")";
    }
    return {};
}

std::string TellProcess(const Effect& effect)
{
    const std::string path = ToUtf8(effect.Text("path"));
    const std::string name = path.substr(path.rfind('\\') + 1);
    if (effect.Text("what") == L"started") return name + " starts";
    return name + " ends with exit code " + std::to_string(effect.Number("exit_code"));
}

std::string TellClock(const Effect&) { return "the clock is set"; }

// Only a message of the service to the debugger shows the refusal.
std::string TellDebug(const Effect& effect)
{
    const bool refused = effect.Text("text").find(L"Override detected") != std::wstring::npos;
    return refused ? "never-sleep mode is refused: the user has woken the PC" : "";
}

// Activating the active plan again only puts its new values into force, which a person does not
// see.
std::string TellPlan(const Effect& effect)
{
    if (effect.Text("plan") == effect.Text("before")) return {};
    return "power plan: " + ToUtf8(effect.Text("plan"));
}

std::string TellSource(const Effect& effect)
{
    if (effect.Text("source") == L"ac") return "on mains power";
    return "on battery, " + std::to_string(effect.Number("percent")) + " %";
}

std::string TellSleep(const Effect& effect)
{
    const std::wstring what = effect.Text("what");
    const std::string why = ToUtf8(effect.Text("why"));
    if (what == L"suspends") return "the PC goes to sleep (" + why + ")";
    if (what == L"stands by") return "the PC goes into Modern Standby (" + why + ")";
    return what == L"asleep" ? "the PC is asleep" : "the PC wakes (" + why + ")";
}

std::string TellAway(const Effect& effect)
{
    return effect.Number("on") ? "away mode begins" : "away mode ends";
}

std::string TellDisplay(const Effect& effect)
{
    return effect.Number("on") ? "the display is on" : "the display goes off";
}

std::string TellRequest(const Effect& effect)
{
    const std::string type = ToUtf8(effect.Text("type"));
    if (effect.Text("what") == L"ended") return "power request ended by the sleep: " + type;
    if (effect.Number("count") > 1) return {};
    return effect.Text("what") == L"set" ? "power request held: " + type
                                         : "power request released: " + type;
}

std::string TellService(const Effect& effect)
{
    const std::string name = ToUtf8(effect.Text("name"));
    const std::wstring what = effect.Text("what");
    if (what == L"created") return name + " is installed as a service";
    if (what == L"marked") return {};
    return name + " is no service any more";
}

std::string TellServiceStatus(const Effect& effect)
{
    // A service may report the same state more than once.
    if (effect.Text("state") == effect.Text("was")) return {};
    return ToUtf8(effect.Text("name") + L": " + effect.Text("state"));
}

std::string TellMessageBox(const Effect& effect)
{
    return "a message box of " + ToUtf8(effect.Text("caption") + L": " + effect.Text("text"));
}

std::string TellPowerSwitch(const Effect& effect)
{
    if (effect.Text("what") == L"cut") return "the power is cut";
    return effect.Text("what") == L"on" ? "the PC is switched on" : "the PC is off";
}

std::string TellDevice(const Effect& effect)
{
    return "platform device: mode " + std::to_string(effect.Number("mode"));
}

std::string TellSession(const Effect& effect)
{
    static constexpr std::pair<std::wstring_view, const char*> kWhat[] = {
        {L"logon", " logs on"},
        {L"logoff", " logs off"},
        {L"lock", " locks the workstation"},
        {L"unlock", " unlocks the workstation"},
    };
    for (const auto& [what, words] : kWhat) {
        if (effect.Text("what") == what) return ToUtf8(effect.Text("user")) + words;
    }
    return {};
}

std::string TellMute(const Effect& effect)
{
    return ToUtf8(effect.Text("endpoint")) +
           (effect.Number("muted") ? " is muted" : " is not muted any more");
}

std::string TellEndpoint(const Effect& effect)
{
    const std::string name = ToUtf8(effect.Text("endpoint"));
    const std::wstring what = effect.Text("what");
    if (what == L"state") {
        return name + (effect.Number("state") == 1 ? " can be heard" : " can no longer be heard");
    }
    if (what == L"added") return name + ": a new sound endpoint";
    if (what == L"removed") return name + ": its device is taken out";
    // One line for all roles: that of the console role.
    if (effect.Number("role") != 0) return {};
    const std::string use =
        effect.Number("flow") == 0 ? "sound comes from " : "sound is taken from ";
    return use + (name.empty() ? "nowhere" : name);
}

std::string TellClientCall(const Effect& effect)
{
    const std::string answer = ToUtf8(effect.Text("answer"));
    const std::string result = ToUtf8(effect.Text("result"));
    const std::string told = ToUtf8(effect.Text("client")) + ": " + ToUtf8(effect.Text("call"));
    if (result != "0x00000000") return told + " fails with " + result;
    return answer.empty() ? told : told + " gives " + answer;
}

std::string TellClientEvent(const Effect& effect)
{
    return ToUtf8(effect.Text("client")) + ": sink " + ToUtf8(effect.Text("sink")) +
           " hears of event code " + std::to_string(effect.Number("code")) +
           (effect.Number("cancelled") ? ", cancelled already" : "");
}

constexpr Telling kTellings[] = {
    {"state", TellState},
    {"process", TellProcess},
    {"clock", TellClock},
    {"debug", TellDebug},
    {"plan activated", TellPlan},
    {"request", TellRequest},
    {"session", TellSession},
    {"device request", TellDevice},
    {"mute", TellMute},
    {"endpoint", TellEndpoint},
    {"power source", TellSource},
    {"sleep", TellSleep},
    {"away mode", TellAway},
    {"display", TellDisplay},
    {"client call", TellClientCall},
    {"client event", TellClientEvent},
    {"service", TellService},
    {"service status", TellServiceStatus},
    {"message box", TellMessageBox},
    {"power switch", TellPowerSwitch},
};

}  // namespace

Story::Story(Machine& pc, std::ostream& out) : m_pc(pc), m_out(out)
{
    pc.journal.Listen([this](const Effect& effect) { Hear(effect); });
}

void Story::Hear(const Effect& effect)
{
    for (const Telling& telling : kTellings) {
        if (telling.kind != effect.kind) continue;
        const std::string text = telling.tell(effect);
        if (!text.empty()) Print(effect.clock, text);
    }
}

void Story::Tell(std::string_view text)
{
    const Hold hold(m_pc);
    Print(m_pc.clock(), text);
}

void Story::Print(CalendarTime clock, std::string_view text)
{
    static constexpr const char* kDays[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                            "Thursday", "Friday", "Saturday"};
    const std::string now = FormatCalendar(clock);
    const std::string day = now.substr(0, 10);
    if (day != m_day) {
        m_out << kDays[FromCalendar(clock).wDayOfWeek] << ", " << day << "\n";
        m_day = day;
    }
    m_out << "  " << now.substr(11, 8) << "  " << text << "\n" << std::flush;
}
