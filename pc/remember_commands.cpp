// Observes the PC at one moment, and compares it with a later one, to find what an uninstalled
// program has left behind.

#include <algorithm>

#include "pc/commands.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/registry/registry.h"
#include "platform/virtual/sound/audio.h"

using namespace virtual_pc;

namespace {

void AddKey(const RegistryNode& key, const std::string& path, Observations& observations)
{
    // What a program says of itself while it runs is nothing that it has left behind.
    if (key.is_volatile) return;
    observations[path] = "a key";
    for (const auto& [name, value] : key.values) {
        std::string& observation = observations[path + " " + (name.empty() ? "@" : ToUtf8(name))];
        observation = std::to_string(value.type) + ":";
        observation.append(value.data.begin(), value.data.end());
    }
    for (const auto& [name, below] : key.keys)
        AddKey(*below, path + "\\" + ToUtf8(name), observations);
}

// The beginnings of names that may differ, from a list with semicolons.
std::vector<std::string> BeginningsOf(const std::string& text)
{
    std::vector<std::string> beginnings;
    for (std::size_t from = 0; from < text.size();) {
        const std::size_t end = std::min(text.find(';', from), text.size());
        beginnings.push_back(text.substr(from, end - from));
        from = end + 1;
    }
    return beginnings;
}

Action Remember(const ScriptLine&, const Arguments&)
{
    return [](ScriptContext& context) { context.remembered = Observe(context.pc); };
}

Action ExpectRemembered(const ScriptLine& line, const Arguments& a)
{
    return [line, except = BeginningsOf(a[0])](ScriptContext& context) {
        if (context.remembered.empty()) throw ExpectationFailed(line, "nothing was remembered");
        const Observations now = Observe(context.pc);
        std::string different;
        const auto compare = [&](const std::string& name) {
            const auto is_exempt = [&](const std::string& beginning) {
                return name.starts_with(beginning);
            };
            if (std::ranges::any_of(except, is_exempt)) return;
            const auto before = context.remembered.find(name);
            const auto after = now.find(name);
            if (before == context.remembered.end())
                different += "\n  " + name + " is new";
            else if (after == now.end())
                different += "\n  " + name + " is gone";
            else if (before->second != after->second) {
                different += "\n  " + name + " was " + before->second + ", is " + after->second;
            }
        };
        for (const auto& [name, value] : now) compare(name);
        for (const auto& [name, value] : context.remembered) {
            if (!now.contains(name)) compare(name);
        }
        if (!different.empty()) throw ExpectationFailed(line, "these differ:" + different);
    };
}

}  // namespace

Observations Observe(Machine& pc)
{
    const Hold hold(pc);
    Observations observations;
    for (const wchar_t* root : {L"HKLM", L"HKCU"}) {
        const auto key = pc.registry.FindKey(Registry::Parse(root));
        if (key) AddKey(*key, ToUtf8(root), observations);
    }
    observations["active plan"] = ToUtf8(pc.power.active().name);
    for (const auto& [guid, plan] : pc.power.plans()) {
        for (const auto& [setting, value] : plan.values) {
            observations["plan " + ToUtf8(plan.name) + " " + ToUtf8(PowerSettingName(setting))] =
                std::to_string(value.ac) + " " + std::to_string(value.dc);
        }
    }
    for (const Endpoint* endpoint : pc.audio.All()) {
        observations["mute " + ToUtf8(endpoint->name())] = endpoint->Muted() ? "muted" : "unmuted";
    }
    return observations;
}

std::vector<Command> RememberCommands()
{
    return {
        {"remember", "remembers the registry, the plans and the mute states", Remember},
        {"expect as remembered [EXCEPT]",
         "they are unchanged, except names that begin with: \"HKLM\\...;plan ...\"",
         ExpectRemembered},
    };
}
