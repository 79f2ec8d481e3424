// A program that uses the service's control interface.

#include "api/agent_api.h"
#include "pc/agent_client.h"
#include "pc/commands.h"
#include "platform/virtual/base/text.h"

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
    if (!text.starts_with("E_")) return static_cast<LONG>(NumberOf(line, text));
    std::vector<std::string_view> names;
    for (const auto& known : kFeatures) names.push_back(known.name);
    return kFeatures[ChoiceOf(line, text, names)].feature;
}

LONG LongOf(const ScriptLine& line, const std::string& text)
{
    return static_cast<LONG>(NumberOf(line, text));
}

AgentClient& ClientOf(ScriptContext& context)
{
    auto& client = context.clients[context.client];
    if (!client) client = std::make_shared<AgentClient>(context.pc, FromUtf8(context.client));
    return *client;
}

void KeepAnswer(ScriptContext& context, const AgentClient::Answer& answer)
{
    context.client_answer = ToUtf8(answer.Words());
    context.pc.Settle();
}

AgentClient::Answer Get(ScriptContext& context, LONG feature)
{
    return ClientOf(context).Call(L"GetNeverSleepParam", {feature}, {VT_I4});
}

AgentClient::Answer GetInterval(ScriptContext& context)
{
    return ClientOf(context).Call(L"GetDoNotDisturbTimeInterval", {}, {VT_UINT, VT_UINT});
}

Action Use(const ScriptLine&, const Arguments& a)
{
    return [name = a[0]](ScriptContext& context) { context.client = name; };
}

Action SetFeature(const ScriptLine& line, const Arguments& a)
{
    return [feature = FeatureOf(line, a[0]), value = LongOf(line, a[1])](ScriptContext& context) {
        KeepAnswer(context, ClientOf(context).Call(L"SetNeverSleepParam", {feature, value}));
    };
}

Action GetFeature(const ScriptLine& line, const Arguments& a)
{
    return [feature = FeatureOf(line, a[0])](ScriptContext& context) {
        KeepAnswer(context, Get(context, feature));
    };
}

Action SetInterval(const ScriptLine& line, const Arguments& a)
{
    return [from = LongOf(line, a[0]), to = LongOf(line, a[1])](ScriptContext& context) {
        KeepAnswer(context, ClientOf(context).Call(L"SetDoNotDisturbTimeInterval", {from, to}));
    };
}

Action AskInterval(const ScriptLine&, const Arguments&)
{
    return [](ScriptContext& context) { KeepAnswer(context, GetInterval(context)); };
}

Action AskVersion(const ScriptLine&, const Arguments&)
{
    return [](ScriptContext& context) {
        KeepAnswer(context, ClientOf(context).Call(L"GetNeverSleepApiVersion", {}, {VT_BSTR}));
    };
}

Action AskStatus(const ScriptLine&, const Arguments&)
{
    return [](ScriptContext& context) {
        for (const auto& known : kFeatures) {
            const AgentClient::Answer answer = Get(context, known.feature);
            const Hold hold(context.pc);
            context.out << known.name << "  " << ToUtf8(answer.Words()) << "\n";
        }
        const AgentClient::Answer interval = GetInterval(context);
        {
            const Hold hold(context.pc);
            context.out << "do not disturb (minutes)  " << ToUtf8(interval.Words()) << "\n";
        }
        KeepAnswer(context, interval);
    };
}

Action Event(const ScriptLine& line, const Arguments& a)
{
    if (a[0].empty()) {
        return [](ScriptContext& context) {
            KeepAnswer(context, ClientOf(context).GetProperty(L"NeverSleepEventCode"));
        };
    }
    return [code = LongOf(line, a[0])](ScriptContext& context) {
        KeepAnswer(context, ClientOf(context).PutProperty(L"NeverSleepEventCode", code));
    };
}

Action Advise(const ScriptLine& line, const Arguments& a)
{
    const std::size_t reaction = a[1].empty() ? 0 : ChoiceOf(line, a[1], kReactions);
    return [name = FromUtf8(a[0]), reaction](ScriptContext& context) {
        KeepAnswer(context, ClientOf(context).Advise(name, static_cast<SinkReaction>(reaction)));
    };
}

Action Unadvise(const ScriptLine&, const Arguments& a)
{
    return [name = FromUtf8(a[0])](ScriptContext& context) {
        KeepAnswer(context, ClientOf(context).Unadvise(name));
    };
}

Action Release(const ScriptLine&, const Arguments&)
{
    return [](ScriptContext& context) { ClientOf(context).Release(); };
}

Action Quit(const ScriptLine& line, const Arguments&)
{
    return [line](ScriptContext& context) {
        const bool ended = ClientOf(context).Quit();
        context.clients.erase(context.client);
        if (!ended) {
            throw ExpectationFailed(line, context.client + " has not ended within five minutes");
        }
    };
}

Action End(const ScriptLine&, const Arguments&)
{
    return [](ScriptContext& context) {
        ClientOf(context).End();
        context.clients.erase(context.client);
    };
}

Action ExpectAnswer(const ScriptLine& line, const Arguments& a)
{
    return [line, expected = a[0]](ScriptContext& context) {
        if (context.client_answer == expected) return;
        throw ExpectationFailed(line, "expected the answer " + expected +
                                          " to the client, but it is " + context.client_answer);
    };
}

Action ExpectSinkHeard(const ScriptLine& line, const Arguments& a)
{
    return [line, sink = a[0], expected = a[1]](ScriptContext& context) {
        const std::string heard = ToUtf8(ClientOf(context).Heard(FromUtf8(sink)));
        if (heard == expected) return;
        throw ExpectationFailed(line, "expected sink " + sink + " to have heard \"" + expected +
                                          "\", but it has heard \"" + heard + "\"");
    };
}

}  // namespace

std::vector<Command> ClientCommands()
{
    return {
        {"client use NAME", "selects the program that the client commands act on; the first is UI",
         Use},
        {"client set FEATURE N", "switches a feature: E_AUDIO and the like, or its number",
         SetFeature},
        {"client get FEATURE", "asks for a feature", GetFeature},
        {"client interval START END", "sets the do-not-disturb interval, in minutes", SetInterval},
        {"client interval", "asks for the do-not-disturb interval", AskInterval},
        {"client version", "asks for the interface's version", AskVersion},
        {"client status", "asks for every feature and the interval, and prints them", AskStatus},
        {"client event [CODE]", "raises an event code, or asks for the current one", Event},
        {"client advise SINK [REACTION]",
         "connects a sink, which listens, cancels, clears, fails, calls-back or leaves", Advise},
        {"client unadvise SINK", "disconnects a sink", Unadvise},
        {"client release", "releases the object and the sinks", Release},
        {"client quit", "has the program end, which releases everything", Quit},
        {"client end", "terminates the program, which releases nothing", End},
        {"expect client answer TEXT", "the answer to the last call: values, ok, or 0x...",
         ExpectAnswer},
        {"expect client heard SINK TEXT", "the event codes that a sink has received",
         ExpectSinkHeard},
    };
}
