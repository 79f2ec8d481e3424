// Sound endpoints, their mute states and the defaults.

#include <cmath>
#include <optional>

#include "pc/commands.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/sound/audio.h"

using namespace virtual_pc;

namespace {

Endpoint& FindEndpoint(const ScriptLine& line, ScriptContext& context, const std::string& name)
{
    Endpoint* endpoint = context.pc.audio.Find(FromUtf8(name));
    if (!endpoint) throw ExpectationFailed(line, "there is no endpoint \"" + name + "\"");
    return *endpoint;
}

Action AddEndpoint(const ScriptLine& line, const Arguments& a)
{
    const EDataFlow flow = ChoiceOf(line, a[1], {"render", "capture"}) == 0 ? eRender : eCapture;
    const bool muted = ChoiceOf(line, a[2], {"unmuted", "muted"}) == 1;
    const bool is_default = !a[3].empty() && ChoiceOf(line, a[3], {"default"}) == 0;
    return [=, name = FromUtf8(a[0])](ScriptContext& context) {
        Endpoint& endpoint = context.pc.audio.Add(name, flow, {.muted = muted});
        if (is_default) endpoint.MakeDefault();
        context.pc.Settle();
    };
}

// Changes an endpoint, and runs the service until it has handled the notification.
template <void (*act)(Endpoint&)>
Action On(const ScriptLine& line, const Arguments& a)
{
    return [line, name = a[0]](ScriptContext& context) {
        act(FindEndpoint(line, context, name));
        context.pc.Settle();
    };
}

void Mute(Endpoint& endpoint) { endpoint.SetMute(true); }
void Unmute(Endpoint& endpoint) { endpoint.SetMute(false); }
void Plug(Endpoint& endpoint) { endpoint.SetState(DEVICE_STATE_ACTIVE); }
void Unplug(Endpoint& endpoint) { endpoint.SetState(DEVICE_STATE_UNPLUGGED); }
void Disable(Endpoint& endpoint) { endpoint.SetState(DEVICE_STATE_DISABLED); }
void Remove(Endpoint& endpoint) { endpoint.Remove(); }

// For one role, or for all of them.
Action MakeDefault(const ScriptLine& line, const Arguments& a)
{
    std::optional<ERole> role;
    if (!a[1].empty()) {
        role =
            static_cast<ERole>(ChoiceOf(line, a[1], {"console", "multimedia", "communications"}));
    }
    return [=, name = a[0]](ScriptContext& context) {
        Endpoint& endpoint = FindEndpoint(line, context, name);
        if (role) {
            endpoint.MakeDefault(*role);
        } else {
            endpoint.MakeDefault();
        }
        context.pc.Settle();
    };
}

Action SetVolume(const ScriptLine& line, const Arguments& a)
{
    const std::uint32_t percent = NumberOf(line, a[1]);
    if (percent > 100) throw ScriptError(line, "\"" + a[1] + "\" is no volume of 0 to 100");
    return [=, name = a[0]](ScriptContext& context) {
        FindEndpoint(line, context, name).SetVolume(static_cast<float>(percent) / 100);
        context.pc.Settle();
    };
}

Action ExpectMute(const ScriptLine& line, const Arguments& a)
{
    const bool muted = ChoiceOf(line, a[1], {"unmuted", "muted"}) == 1;
    return [=, name = a[0]](ScriptContext& context) {
        if (FindEndpoint(line, context, name).Muted() == muted) return;
        throw ExpectationFailed(line, "expected " + name + (muted ? " muted" : " unmuted") +
                                          ", but it is " + (muted ? "unmuted" : "muted"));
    };
}

std::string_view StateWord(DWORD state)
{
    switch (state) {
        case DEVICE_STATE_ACTIVE:
            return "active";
        case DEVICE_STATE_DISABLED:
            return "disabled";
        case DEVICE_STATE_UNPLUGGED:
            return "unplugged";
        default:
            return "not present";
    }
}

Action ShowAudio(const ScriptLine&, const Arguments&)
{
    return [](ScriptContext& context) {
        for (const Endpoint* endpoint : context.pc.audio.All()) {
            context.out << ToUtf8(endpoint->name()) << ": "
                        << (endpoint->flow() == eRender ? "render, " : "capture, ")
                        << StateWord(endpoint->State())
                        << (endpoint->Muted() ? ", muted" : ", unmuted") << ", volume "
                        << std::lround(endpoint->Volume() * 100)
                        << (context.pc.audio.Default(endpoint->flow()) == endpoint ? ", default"
                                                                                   : "")
                        << "\n";
        }
    };
}

Action SetThreads(const ScriptLine& line, const Arguments& a)
{
    constexpr std::uint32_t kMost = 16;
    const std::uint32_t count = NumberOf(line, a[0]);
    if (count < 1 || count > kMost) throw ScriptError(line, "\"" + a[0] + "\" is not 1 to 16");
    return [=](ScriptContext& context) {
        const Hold hold(context.pc);
        context.pc.audio.notices.threads_max = count;
    };
}

Action TellListeners(const ScriptLine& line, const Arguments& a)
{
    const bool on = ChoiceOf(line, a[0], {"off", "on"}) == 1;
    return [=](ScriptContext& context) {
        const Hold hold(context.pc);
        context.pc.audio.notices.tells_listeners = on;
    };
}

}  // namespace

std::vector<Command> AudioCommands()
{
    return {
        {"audio add NAME FLOW MUTED [DEFAULT]",
         "adds an endpoint: render or capture, muted or unmuted, default", AddEndpoint},
        {"audio mute NAME", "mutes an endpoint, as a user does", On<Mute>},
        {"audio unmute NAME", "unmutes an endpoint, as a user does", On<Unmute>},
        {"audio volume NAME PERCENT", "sets an endpoint's volume", SetVolume},
        {"audio plug NAME", "plugs an endpoint in", On<Plug>},
        {"audio unplug NAME", "pulls an endpoint's plug", On<Unplug>},
        {"audio enable NAME", "switches an endpoint on in the control panel", On<Plug>},
        {"audio disable NAME", "switches an endpoint off in the control panel", On<Disable>},
        {"audio remove NAME", "takes an endpoint's device out of the PC", On<Remove>},
        {"audio default NAME [ROLE]",
         "makes an endpoint the default of its flow: for console, multimedia, communications, or "
         "all",
         MakeDefault},
        {"audio threads COUNT", "on how many threads the sound system calls back, 1 to 16",
         SetThreads},
        {"audio volume-notices ON", "whether programs are told of new mute states and volumes",
         TellListeners},
        {"expect mute NAME MUTED", "an endpoint is muted or unmuted", ExpectMute},
        {"show audio", "the endpoints", ShowAudio},
    };
}
