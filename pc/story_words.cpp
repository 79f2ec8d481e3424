#include "pc/story_words.h"

#include <cstdio>
#include <string_view>

#include "platform/virtual/base/text.h"
#include "platform/virtual/base/time.h"

using namespace virtual_pc;

namespace {

struct Telling
{
    std::string_view kind;
    Told (*tell)(const Effect& effect);
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

// The service's timers count whole minutes from when they are set: hours that begin at 22:00 act at
// 22:00:30 where the timer was set at half past a minute.
std::string WhyNow(const Effect& effect)
{
    const bool begins = effect.Text("to") == L"HOLV_DND";
    if (!begins && effect.Text("from") != L"HOLV_DND") return {};
    const std::int64_t boundary = effect.Number(begins ? "hours_begin" : "hours_end");
    const std::string clock = FormatCalendar(effect.clock);
    char text[100];
    std::snprintf(text, sizeof(text), "%02d:%02d", static_cast<int>(boundary / 60),
                  static_cast<int>(boundary % 60));
    if (clock.substr(11, 5) != text) return {};
    const bool on_time = clock.substr(17, 2) == "00";
    return std::string(begins ? ": the hours begin at " : ": the hours end at ") + text +
           (on_time ? "" : ", counted in whole minutes");
}

Told TellState(const Effect& effect)
{
    const std::wstring to = effect.Text("to");
    for (const StateWords& state : kStateWords) {
        if (state.name != to) continue;
        return {std::string(state.words) + " (" + ToUtf8(to) + ", from " +
                    ToUtf8(effect.Text("from")) + ")" + WhyNow(effect),
                kState};
    }
    return {};
}

Told TellProcess(const Effect& effect)
{
    const std::string path = ToUtf8(effect.Text("path"));
    const std::string name = path.substr(path.rfind('\\') + 1);
    if (effect.Text("what") == L"started") return name + " starts";
    if (effect.Number("killed")) return {name + " is killed", kKilled};
    return name + " ends with exit code " + std::to_string(effect.Number("exit_code"));
}

Told TellClock(const Effect&) { return "the clock is set"; }

// Only a message of the service to the debugger shows the refusal.
Told TellDebug(const Effect& effect)
{
    const bool refused = effect.Text("text").find(L"Override detected") != std::wstring::npos;
    return refused ? "never-sleep mode is refused: the user has woken the PC" : "";
}

// Activating the active plan again only puts its new values into force, which a person does not
// see.
Told TellPlan(const Effect& effect)
{
    if (effect.Text("plan") == effect.Text("before")) return {};
    return {"power plan: " + ToUtf8(effect.Text("plan")), kPlan};
}

Told TellSource(const Effect& effect)
{
    if (effect.Text("source") == L"ac") return "on mains power";
    return "on battery, " + std::to_string(effect.Number("percent")) + " %";
}

Told TellSleep(const Effect& effect)
{
    const std::wstring what = effect.Text("what");
    const std::string why = ToUtf8(effect.Text("why"));
    if (what == L"suspends") return {"the PC goes to sleep (" + why + ")", kSleep};
    if (what == L"stands by") return {"the PC goes into Modern Standby (" + why + ")", kSleep};
    return what == L"asleep" ? "the PC is asleep" : "the PC wakes (" + why + ")";
}

Told TellAway(const Effect& effect)
{
    if (effect.Number("on")) return "away mode begins";
    return {"away mode ends", kAwayEnds};
}

Told TellDisplay(const Effect& effect)
{
    return {effect.Number("on") ? "the display is on" : "the display goes off", kDisplay};
}

// That the user has left is known to those who see the user leave, and told by the display.
Told TellPresence(const Effect& effect)
{
    if (!effect.Number("present")) return {};
    return {"the user is there", kUserBack};
}

Told TellRequest(const Effect& effect)
{
    const std::string owner = ToUtf8(effect.Text("owner"));
    const std::string of =
        ToUtf8(effect.Text("type")) + ", of " + owner.substr(owner.rfind('\\') + 1);
    if (effect.Text("what") == L"ended") {
        return {"power request ended by the sleep: " + of, kRequestEnded};
    }
    const bool set = effect.Text("what") == L"set";
    // One that is set twice is held once more, until it is cleared twice.
    if (effect.Number("count") != (set ? 1 : 0)) return {};
    return {(set ? "power request held: " : "power request released: ") + of, kRequest};
}

Told TellService(const Effect& effect)
{
    const std::string name = ToUtf8(effect.Text("name"));
    const std::wstring what = effect.Text("what");
    if (what == L"created") return name + " is installed as a service";
    if (what == L"marked") return {};
    return name + " is no service any more";
}

Told TellServiceStatus(const Effect& effect)
{
    // A service may report the same state more than once.
    if (effect.Text("state") == effect.Text("was")) return {};
    return {ToUtf8(effect.Text("name") + L": " + effect.Text("state")), kServiceStatus};
}

Told TellMessageBox(const Effect& effect)
{
    return "a message box of " + ToUtf8(effect.Text("caption") + L": " + effect.Text("text"));
}

Told TellPowerSwitch(const Effect& effect)
{
    static constexpr std::pair<std::wstring_view, const char*> kWhat[] = {
        {L"on", "the PC is switched on"},
        {L"shuts down", "the PC shuts down"},
        {L"off", "the PC is off"},
        {L"cut", "the power is cut, and the PC is off"},
    };
    for (const auto& [what, words] : kWhat) {
        if (effect.Text("what") == what) return words;
    }
    return {};
}

Told TellDevice(const Effect& effect)
{
    return {"platform device: mode " + std::to_string(effect.Number("mode")), kDevice};
}

Told TellSession(const Effect& effect)
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

Told TellMute(const Effect& effect)
{
    return {ToUtf8(effect.Text("endpoint")) +
                (effect.Number("muted") ? " is muted" : " is not muted any more"),
            kMute};
}

Told TellEndpoint(const Effect& effect)
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

Told TellClientCall(const Effect& effect)
{
    const std::string answer = ToUtf8(effect.Text("answer"));
    const std::string result = ToUtf8(effect.Text("result"));
    const std::string told = ToUtf8(effect.Text("client")) + ": " + ToUtf8(effect.Text("call"));
    if (result != "0x00000000") return told + " fails with " + result;
    return answer.empty() ? told : told + " gives " + answer;
}

Told TellClientEvent(const Effect& effect)
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
    {"presence", TellPresence},
    {"client call", TellClientCall},
    {"client event", TellClientEvent},
    {"service", TellService},
    {"service status", TellServiceStatus},
    {"message box", TellMessageBox},
    {"power switch", TellPowerSwitch},
};

}  // namespace

Told TellEffect(const Effect& effect)
{
    for (const Telling& telling : kTellings) {
        if (telling.kind == effect.kind) return telling.tell(effect);
    }
    return {};
}
