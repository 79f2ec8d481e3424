#include "storm/promised/promised.h"

#include "platform/virtual/base/text.h"
#include "platform/virtual/devices/device.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/sound/audio.h"

using namespace virtual_pc;

namespace {

constexpr const char* kPlan = "active plan";

// The name of a value of a plan, as the command "expect plan" takes it.
std::string ValueName(const std::wstring& plan, const std::wstring& source,
                      const std::wstring& setting)
{
    return "plan \"" + ToUtf8(plan) + "\" " + ToUtf8(source) + " " + ToUtf8(setting);
}

}  // namespace

Promised::Promised(Machine& pc) : m_pc(pc), m_present(Now())
{
    for (const auto& [name, value] : m_present) m_wishes[name] = {value, pc.now()};
    // What no program has done, the user has.
    pc.journal.Listen([this](const Effect& effect) { Hear(effect); });
}

std::map<std::string, std::string> Promised::Now() const
{
    const Hold hold(m_pc);
    std::map<std::string, std::string> now;
    now[kPlan] = ToUtf8(m_pc.power.active().name);
    for (const auto& [guid, plan] : m_pc.power.plans()) {
        for (const auto& [setting, value] : plan.values) {
            const std::wstring name(PowerSettingName(setting));
            // Never-sleep mode leaves its plan with the full processor.
            if (name == L"processor-max") continue;
            now[ValueName(plan.name, L"ac", name)] = std::to_string(value.ac);
            now[ValueName(plan.name, L"dc", name)] = std::to_string(value.dc);
        }
    }
    for (const Endpoint* endpoint : m_pc.audio.All()) {
        if (endpoint->State() != DEVICE_STATE_ACTIVE) continue;
        now["mute " + ToUtf8(endpoint->name())] = endpoint->Muted() ? "muted" : "unmuted";
    }
    return now;
}

void Promised::Set(const std::string& name, const std::string& value, const Effect& effect)
{
    std::string& present = m_present[name];
    const bool by_hand = effect.thread == 0;
    if (by_hand && present != value) m_wishes[name] = {value, effect.at};
    present = value;
}

void Promised::Hear(const Effect& effect)
{
    if (effect.kind == "plan activated") {
        Set(kPlan, ToUtf8(effect.Text("plan")), effect);
    } else if (effect.kind == "plan written") {
        Set(ValueName(effect.Text("plan"), effect.Text("source"), effect.Text("setting")),
            std::to_string(effect.Number("value")), effect);
    } else if (effect.kind == "mute") {
        Set("mute " + ToUtf8(effect.Text("endpoint")),
            effect.Number("muted") != 0 ? "muted" : "unmuted", effect);
    } else if (effect.kind == "power switch" && effect.Text("what") == L"cut") {
        // What the user has changed in the last minute may be lost.
        std::erase_if(m_wishes,
                      [&](const auto& wish) { return effect.at - wish.second.since < 65s; });
        m_present.clear();
    }
}

void Promised::Deed(const ScriptLine& line)
{
    const auto& words = line.words;
    m_last_deed = m_pc.now();
    if (words[0] == "plan" && words.size() > 2 && words[1] != "set" && words[1] != "active")
        Forget(words);
    if (words[0] == "sleep") m_works_since = kNever;
    if (words[0] != "user" || words.size() < 2) return;
    m_works_since = words[1] == "works" ? m_pc.now() : kNever;
}

void Promised::Forget(const std::vector<std::string>& plans)
{
    for (const std::string& plan : plans) {
        std::erase_if(m_wishes, [&](const auto& wish) {
            return wish.first.starts_with("plan \"" + plan + "\"") ||
                   (wish.first == kPlan && wish.second.value == plan);
        });
    }
}

std::vector<Broken> Promised::Compare(bool at_end, Duration patience)
{
    std::vector<Broken> broken;
    for (const auto& [name, is] : Now()) {
        const auto wish = m_wishes.find(name);
        const bool value = name.starts_with("plan ");
        if (wish == m_wishes.end()) continue;
        if (wish->second.value == is || (value && !at_end)) {
            m_wrong.erase(name);
            continue;
        }
        const Instant since = m_wrong.try_emplace(name, m_pc.now()).first->second;
        if (m_pc.now() - since < patience) continue;
        broken.push_back({name == kPlan ? "the user's plan is active"
                          : value       ? "the plans have the user's values"
                                        : "the endpoints sound as the user left them",
                          name, wish->second.value, is, since});
    }
    return broken;
}

std::vector<Broken> Promised::Check()
{
    const bool settled = m_works_since != kNever && m_pc.now() - m_works_since > 90s &&
                         m_pc.now() - m_last_deed > 15s;
    if (!settled) {
        m_wrong.clear();
        return {};
    }
    return Compare(false, 5min);
}

std::vector<Broken> Promised::CheckEnd()
{
    std::vector<Broken> broken = Compare(true, Duration{0});
    const Hold hold(m_pc);
    for (const auto& [type, name] : {std::pair{PowerRequestSystemRequired, "request system"},
                                     std::pair{PowerRequestAwayModeRequired, "request away"}}) {
        if (m_pc.power.Held(type))
            broken.push_back(
                {"nothing is held after a stop", name, "released", "held", m_pc.now()});
    }
    return broken;
}
