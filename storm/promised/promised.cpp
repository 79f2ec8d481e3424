#include "storm/promised/promised.h"

#include "platform/virtual/base/text.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/sound/audio.h"

using namespace virtual_pc;

Promised::Promised(Machine& pc) : m_pc(pc)
{
    const Hold hold(pc);
    m_plan = ToUtf8(pc.power.active().name);
    for (const Endpoint* endpoint : pc.audio.All()) m_muted[ToUtf8(endpoint->name())] = endpoint->Muted();
}

void Promised::Deed(const ScriptLine& line)
{
    const auto& words = line.words;
    if (words.size() == 3 && words[0] == "plan" && words[1] == "active") m_plan = words[2];
    if (words.size() == 3 && words[0] == "audio" && (words[1] == "mute" || words[1] == "unmute")) {
        m_muted[words[2]] = words[1] == "mute";
    }
}

std::vector<Broken> Promised::Check() { return {}; }

std::vector<Broken> Promised::CheckEnd()
{
    const Hold hold(m_pc);
    std::vector<Broken> broken;
    const std::string active = ToUtf8(m_pc.power.active().name);
    if (active != m_plan) broken.push_back({"the user's plan is active", "active plan", m_plan, active, m_pc.now()});
    for (const Endpoint* endpoint : m_pc.audio.All()) {
        const std::string name = ToUtf8(endpoint->name());
        const auto wanted = m_muted.find(name);
        if (wanted == m_muted.end() || wanted->second == endpoint->Muted()) continue;
        broken.push_back({"endpoints sound as the user left them", "mute " + name, wanted->second ? "muted" : "unmuted",
                          endpoint->Muted() ? "muted" : "unmuted", m_pc.now()});
    }
    return broken;
}
