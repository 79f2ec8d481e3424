// A program that uses the service's control interface.

#include "api/agent_api.h"
#include "pc/agent_client.h"
#include "pc/commands.h"

using namespace virtual_pc;

namespace {

constexpr struct
{
    std::string_view name;
    HOLVAgentFeatureEnum feature;
} kFeatures[] = {
    {"E_HOLV_STATE", E_HOLV_STATE},
    {"E_AUDIO", E_AUDIO},
    {"E_DONOTDISTURB", E_DONOTDISTURB},
    {"E_APPLICATION_SUSPEND", E_APPLICATION_SUSPEND},
    {"E_SHOW_LYNC_CONTROLS", E_SHOW_LYNC_CONTROLS},
    {"E_TURN_ON_DISPLAY_ON_LYNC", E_TURN_ON_DISPLAY_ON_LYNC},
    {"E_ENTER_S3_ON_DND", E_ENTER_S3_ON_DND},
    {"E_ENABLE_HOLV_ON_DC", E_ENABLE_HOLV_ON_DC},
    {"E_BATTERY_PRESENT", E_BATTERY_PRESENT},
};

const std::vector<std::string_view> kReactions = {"listens", "cancels",    "clears",
                                                  "fails",   "calls-back", "leaves"};

// A feature by its name, or any number.
LONG FeatureOf(const ScriptLine& line, const std::string& text)
{
    for (const auto& known : kFeatures) {
        if (known.name == text) return known.feature;
    }
    return static_cast<LONG>(NumberOf(line, text));
}

LONG LongOf(const ScriptLine& line, const std::string& text)
{
    return static_cast<LONG>(NumberOf(line, text));
}

AgentClient& ClientOf(Stage& stage)
{
    auto& client = stage.clients[stage.client];
    if (!client) client = std::make_shared<AgentClient>(stage.pc, FromUtf8(stage.client));
    return *client;
}

void KeepAnswer(Stage& stage, const AgentClient::Answer& answer)
{
    stage.client_answer = ToUtf8(answer.Words());
    stage.pc.Settle();
}

AgentClient::Answer Get(Stage& stage, LONG feature)
{
    return ClientOf(stage).Call(L"GetNeverSleepParam", {feature}, {VT_I4});
}

AgentClient::Answer GetInterval(Stage& stage)
{
    return ClientOf(stage).Call(L"GetDoNotDisturbTimeInterval", {}, {VT_UINT, VT_UINT});
}

Action Use(const ScriptLine&, const Arguments& a)
{
    return [name = a[0]](Stage& stage) { stage.client = name; };
}

Action SetFeature(const ScriptLine& line, const Arguments& a)
{
    return [feature = FeatureOf(line, a[0]), value = LongOf(line, a[1])](Stage& stage) {
        KeepAnswer(stage, ClientOf(stage).Call(L"SetNeverSleepParam", {feature, value}));
    };
}

Action GetFeature(const ScriptLine& line, const Arguments& a)
{
    return
        [feature = FeatureOf(line, a[0])](Stage& stage) { KeepAnswer(stage, Get(stage, feature)); };
}

Action SetInterval(const ScriptLine& line, const Arguments& a)
{
    return [from = LongOf(line, a[0]), to = LongOf(line, a[1])](Stage& stage) {
        KeepAnswer(stage, ClientOf(stage).Call(L"SetDoNotDisturbTimeInterval", {from, to}));
    };
}

Action AskInterval(const ScriptLine&, const Arguments&)
{
    return [](Stage& stage) { KeepAnswer(stage, GetInterval(stage)); };
}

Action AskVersion(const ScriptLine&, const Arguments&)
{
    return [](Stage& stage) {
        KeepAnswer(stage, ClientOf(stage).Call(L"GetNeverSleepApiVersion", {}, {VT_BSTR}));
    };
}

Action AskStatus(const ScriptLine&, const Arguments&)
{
    return [](Stage& stage) {
        for (const auto& known : kFeatures) {
            const AgentClient::Answer answer = Get(stage, known.feature);
            const Hold hold(stage.pc);
            stage.out << known.name << "  " << ToUtf8(answer.Words()) << "\n";
        }
        const AgentClient::Answer interval = GetInterval(stage);
        {
            const Hold hold(stage.pc);
            stage.out << "do not disturb (minutes)  " << ToUtf8(interval.Words()) << "\n";
        }
        KeepAnswer(stage, interval);
    };
}

Action Event(const ScriptLine& line, const Arguments& a)
{
    if (a[0].empty()) {
        return [](Stage& stage) {
            KeepAnswer(stage, ClientOf(stage).GetProperty(L"NeverSleepEventCode"));
        };
    }
    return [code = LongOf(line, a[0])](Stage& stage) {
        KeepAnswer(stage, ClientOf(stage).PutProperty(L"NeverSleepEventCode", code));
    };
}

Action Advise(const ScriptLine& line, const Arguments& a)
{
    const std::size_t reaction = a[1].empty() ? 0 : ChoiceOf(line, a[1], kReactions);
    return [name = FromUtf8(a[0]), reaction](Stage& stage) {
        KeepAnswer(stage, ClientOf(stage).Advise(name, static_cast<SinkReaction>(reaction)));
    };
}

Action Unadvise(const ScriptLine&, const Arguments& a)
{
    return [name = FromUtf8(a[0])](Stage& stage) {
        KeepAnswer(stage, ClientOf(stage).Unadvise(name));
    };
}

Action Release(const ScriptLine&, const Arguments&)
{
    return [](Stage& stage) { ClientOf(stage).Release(); };
}

template <void (AgentClient::*end)()>
Action End(const ScriptLine&, const Arguments&)
{
    return [](Stage& stage) {
        (ClientOf(stage).*end)();
        stage.clients.erase(stage.client);
    };
}

Action ExpectAnswer(const ScriptLine& line, const Arguments& a)
{
    return [line, expected = a[0]](Stage& stage) {
        if (stage.client_answer == expected) return;
        throw ExpectationFailed(line, "expected the answer " + expected +
                                          " to the client, but it is " + stage.client_answer);
    };
}

Action ExpectSinkHeard(const ScriptLine& line, const Arguments& a)
{
    return [line, sink = a[0], expected = a[1]](Stage& stage) {
        const std::string heard = ToUtf8(ClientOf(stage).Heard(FromUtf8(sink)));
        if (heard == expected) return;
        throw ExpectationFailed(line, "expected sink " + sink + " to have heard \"" + expected +
                                          "\", but it has heard \"" + heard + "\"");
    };
}

}  // namespace

std::vector<Command> ClientCommands()
{
    return {
        {"client use NAME", "the program that the commands below are about; the first is UI", Use},
        {"client set FEATURE N", "switches a feature: E_AUDIO and the like, or its number",
         SetFeature},
        {"client get FEATURE", "asks for a feature", GetFeature},
        {"client interval START END", "sets the do-not-disturb interval, in minutes", SetInterval},
        {"client interval", "asks for it", AskInterval},
        {"client version", "asks for the interface's version", AskVersion},
        {"client status", "asks for every feature and the interval, and prints them", AskStatus},
        {"client event [CODE]", "raises an event code, or asks for the current one", Event},
        {"client advise SINK [REACTION]",
         "connects a sink, which listens, cancels, clears, fails, calls-back or leaves", Advise},
        {"client unadvise SINK", "disconnects it", Unadvise},
        {"client release", "lets go of the object and the sinks", Release},
        {"client quit", "the program ends, and lets go of everything", End<&AgentClient::Quit>},
        {"client end", "it is ended, and lets go of nothing", End<&AgentClient::End>},
        {"expect client answer TEXT", "what the last question gave: values, ok, or 0x...",
         ExpectAnswer},
        {"expect client heard SINK TEXT", "the event codes that a sink has heard", ExpectSinkHeard},
    };
}
