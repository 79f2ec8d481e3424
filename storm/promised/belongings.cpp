#include "storm/promised/belongings.h"

#include <algorithm>
#include <utility>

#include "platform/virtual/base/text.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/core/thread.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/sound/audio.h"

using namespace virtual_pc;

namespace {

std::string MuteText(bool muted) { return muted ? "muted" : "unmuted"; }
std::string MuteOf(const std::string& endpoint) { return "mute " + endpoint; }

// What the service may take a new plan's value for, from the plan that it replaces.
void TakeOver(Wish& wish, Wish& old, const std::string& value)
{
    wish.until_activated = old.until_activated;
    wish.until_activated.insert(old.values.begin(), old.values.end());
    wish.gone_values = std::move(old.gone_values);
    wish.gone_values.insert(old.values.begin(), old.values.end());
    wish.gone_written = std::move(old.gone_written);
    wish.gone_written.insert(old.written.begin(), old.written.end());
    // Where the new plan has just what the service had written into one of them, the service cannot
    // tell them apart.
    if (!wish.gone_written.contains(value)) return;
    wish.values.insert(wish.gone_values.begin(), wish.gone_values.end());
    wish.written = wish.gone_written;
}

}  // namespace

By CausedBy(const Effect& effect)
{
    const Thread* const thread = effect.thread ? Thread::Self() : nullptr;
    if (!thread || !thread->process) return By::user;
    const std::wstring& path = thread->process->path();
    const bool ours = path.ends_with(L"HOLVService.exe") || path.ends_with(L"holvctl.exe");
    return ours ? By::service : By::user;
}

std::string PlanValue(std::string_view plan, std::string_view source, std::string_view setting)
{
    std::string name = "plan \"";
    name.append(plan).append("\" ").append(source).append(" ").append(setting);
    return name;
}

Belongings::Belongings(Machine& pc) : m_pc(pc) { Absorb(); }

std::map<std::string, std::string> Belongings::Now() const
{
    const Hold hold(m_pc);
    std::map<std::string, std::string> now;
    now[kActivePlanObject] = ToUtf8(m_pc.power.active().name);
    for (const auto& [guid, plan] : m_pc.power.plans()) {
        const std::string name = ToUtf8(plan.name);
        for (const auto& [setting, value] : plan.values) {
            const std::string what = ToUtf8(PowerSettingName(setting));
            now[PlanValue(name, "ac", what)] = std::to_string(value.ac);
            now[PlanValue(name, "dc", what)] = std::to_string(value.dc);
        }
    }
    for (const Endpoint* endpoint : m_pc.audio.All()) {
        if (!endpoint->Active()) continue;
        now[MuteOf(ToUtf8(endpoint->name()))] = MuteText(endpoint->Muted());
    }
    return now;
}

void Belongings::Absorb()
{
    for (const auto& [name, value] : Now()) {
        const auto [wish, is_new] = m_wishes.try_emplace(name);
        if (!is_new) continue;
        wish->second = {.values = {value}, .latest = value, .touched = m_pc.now()};
        const auto old = m_replaced.find(name);
        if (old == m_replaced.end()) continue;
        TakeOver(wish->second, old->second, value);
    }
    m_replaced.clear();
    const std::string& plan = m_wishes[kActivePlanObject].latest;
    m_plan_is_gone = m_plan_is_gone || !m_pc.power.FindPlan(FromUtf8(plan));
}

const Wish* Belongings::Find(const std::string& name) const
{
    const auto found = m_wishes.find(name);
    return found == m_wishes.end() ? nullptr : &found->second;
}

Instant Belongings::PluggedAt(const std::string& endpoint) const
{
    const auto found = m_plugged.find(endpoint);
    return found == m_plugged.end() ? Instant{0} : found->second;
}

// --- Changes ---

void Belongings::Set(const std::string& name, const std::string& value, bool sure)
{
    Wish& wish = m_wishes[name];
    if (name == kActivePlanObject) m_plan_is_gone = false;
    const bool could_be_the_services = wish.written.contains(value);
    wish.before_change = wish.values;
    if (sure && !could_be_the_services) wish.values.clear();
    wish.values.insert(value);
    // Taken for the service's own, it withdraws a choice that came before it.
    if (could_be_the_services) {
        wish.values.insert(wish.before_written.begin(), wish.before_written.end());
    }
    wish.latest = value;
    wish.touched = m_pc.now();
}

void Belongings::HearService(const std::string& name, const std::string& value,
                             const Moment& moment)
{
    Wish& wish = m_wishes[name];
    wish.touched = m_pc.now();
    wish.gone_values.clear();
    wish.gone_written.clear();
    // One of several that are right may be restored, or be the service's own.
    if (wish.values.contains(value) && wish.values.size() == 1) {
        // Within an absence the journal knows what has been written until the user is back.
        if (moment.user_there && !wish.written.empty()) {
            wish.settled = std::exchange(wish.written, {});
            wish.settled_at = m_pc.now();
        } else if (!wish.written.empty()) {
            wish.written.insert(value);
        }
    } else {
        if (wish.written.empty()) wish.before_written.clear();
        wish.before_written.insert(wish.values.begin(), wish.values.end());
        wish.written.insert(value);
        if (moment.values_unread) wish.values.insert(value);
        // Never-sleep mode leaves its plan with the full processor.
        if (name.ends_with(" processor-max")) wish.values.insert("100");
    }
}

void Belongings::HearPlan(const Effect& effect, const Moment& moment)
{
    const std::string plan = ToUtf8(effect.Text("plan"));
    const bool by_service = CausedBy(effect) == By::service;
    if (effect.kind == "plan activated") {
        const std::string prefix = PlanValue(plan, "", "").substr(0, plan.size() + 8);
        for (auto it = m_wishes.lower_bound(prefix);
             it != m_wishes.end() && it->first.starts_with(prefix); ++it) {
            it->second.until_activated.clear();
        }
        if (by_service) return HearService(kActivePlanObject, plan, moment);
        // Chosen while never-sleep mode lasts, its own plan cannot be told from the service's
        // choice. Activated anew, as after an edit, a plan is not chosen.
        constexpr const char* kNeverSleepPlan = "Power saver";
        const bool is_choice = effect.Text("before") != effect.Text("plan");
        return Set(kActivePlanObject, plan,
                   is_choice && (moment.normal_use || plan != kNeverSleepPlan));
    }
    const std::string name =
        PlanValue(plan, ToUtf8(effect.Text("source")), ToUtf8(effect.Text("setting")));
    const std::string value = std::to_string(effect.Number("value"));
    Wish& wish = m_wishes[name];
    if (by_service && moment.policy) {
        wish.until_activated.insert(wish.written.begin(), wish.written.end());
    }
    if (by_service) return HearService(name, value, moment);
    wish.until_activated.insert(wish.values.begin(), wish.values.end());
    Set(name, value);
}

void Belongings::HearMute(const Effect& effect, const Moment& moment)
{
    const std::wstring endpoint = effect.Text("endpoint");
    const std::string name = MuteOf(ToUtf8(endpoint));
    const bool muted = effect.Number("muted") != 0;
    // An endpoint that was added and not yet looked at had the other state.
    if (!m_wishes.contains(name)) Set(name, MuteText(!muted));
    if (CausedBy(effect) == By::service) {
        return HearService(name, MuteText(muted), moment);
    }
    const Endpoint* const first = m_pc.audio.Default(eRender);
    const bool is_default = first && first->name() == endpoint;
    Set(name, MuteText(muted), moment.normal_use && is_default && !moment.default_unknown);
}

void Belongings::Hear(const Effect& effect, const Moment& moment)
{
    if (m_plan_may_come) Absorb();
    if (effect.kind == "plan activated" || effect.kind == "plan written") {
        HearPlan(effect, moment);
    } else if (effect.kind == "mute") {
        HearMute(effect, moment);
    } else if (effect.kind == "endpoint" && effect.Text("what") != L"default") {
        m_plugged[ToUtf8(effect.Text("endpoint"))] = effect.at;
    }
}

// --- Deeds ---

void Belongings::Rename(const std::string& from, const std::string& to)
{
    if (!m_pc.power.FindPlan(FromUtf8(from)) || m_pc.power.FindPlan(FromUtf8(to))) return;
    std::map<std::string, Wish> renamed;
    const std::string before = "plan \"" + from + "\" ";
    for (auto& [name, wish] : m_wishes) {
        const bool its_own = name.starts_with(before);
        renamed[its_own ? "plan \"" + to + "\" " + name.substr(before.size()) : name] = wish;
    }
    for (auto* values : {&renamed[kActivePlanObject].values, &renamed[kActivePlanObject].written}) {
        if (values->erase(from) > 0) values->insert(to);
    }
    std::string& latest = renamed[kActivePlanObject].latest;
    if (latest == from) latest = to;
    m_wishes = std::move(renamed);
}

void Belongings::Replace(const std::string& plan)
{
    const std::string its = "plan \"" + plan + "\" ";
    for (auto it = m_wishes.lower_bound(its); it != m_wishes.end() && it->first.starts_with(its);) {
        m_replaced.insert(m_wishes.extract(it++));
    }
}

void Belongings::Deed(const ScriptLine& line)
{
    m_plan_may_come = false;
    Absorb();
    const auto& words = line.words;
    if (words.size() < 3) return;
    if (words[0] == "plan") {
        m_plan_may_come = words[1] == "add" || words[1] == "copy";
        if (words[1] == "rename" && words.size() == 4) Rename(words[2], words[3]);
        if (words[1] == "add") Replace(words[2]);
        if (words[1] == "copy" && words.size() > 3) Replace(words[3]);
    } else if (words[0] == "audio" && (words[1] == "mute" || words[1] == "unmute")) {
        const Endpoint* const endpoint = m_pc.audio.Find(FromUtf8(words[2]));
        const bool wanted = words[1] == "mute";
        if (endpoint && endpoint->Muted() == wanted) {
            Set(MuteOf(ToUtf8(endpoint->name())), MuteText(wanted), false);
        }
    }
}

void Belongings::Unsettle(Instant settled_since)
{
    for (auto& [name, wish] : m_wishes) {
        if (wish.settled.empty() || wish.settled_at < settled_since) continue;
        wish.written.insert(wish.settled.begin(), wish.settled.end());
        wish.before_written.insert(wish.values.begin(), wish.values.end());
    }
}

void Belongings::TakeAsItIs(Instant changed_since)
{
    for (const auto& [name, value] : Now()) {
        Wish& wish = m_wishes[name];
        if (wish.touched < changed_since) continue;
        wish.values.insert(value);
        wish.values.insert(wish.before_change.begin(), wish.before_change.end());
    }
}
