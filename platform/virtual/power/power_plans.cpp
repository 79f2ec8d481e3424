#include "platform/virtual/power/power_plans.h"

#include <algorithm>
#include <cstring>
#include <cwctype>

namespace virtual_pc {
namespace {

// Plausible values of the predefined plans, in the order of PowerSettings().
struct PredefinedPlan
{
    std::wstring_view name;
    const GUID& guid;
    AcDc values[10];
};

const PredefinedPlan kPredefined[] = {
    {L"Balanced",
     GUID_TYPICAL_POWER_SAVINGS,
     {{1800, 900},
      {0, 0},
      {0, 0},
      {1, 1},
      {5, 5},
      {100, 100},
      {600, 300},
      {100, 40},
      {1, 1},
      {1, 1}}},
    {L"High performance",
     GUID_MIN_POWER_SAVINGS,
     {{0, 0},
      {1, 1},
      {0, 0},
      {1, 1},
      {100, 5},
      {100, 100},
      {900, 600},
      {100, 100},
      {1, 1},
      {1, 1}}},
    {L"Power saver",
     GUID_MAX_POWER_SAVINGS,
     {{900, 600}, {0, 0}, {0, 0}, {1, 1}, {5, 5}, {100, 75}, {300, 120}, {60, 20}, {1, 1}, {1, 1}}},
};

std::wstring Upper(std::wstring_view text)
{
    std::wstring upper(text);
    std::ranges::transform(upper, upper.begin(), [](wchar_t c) { return std::towupper(c); });
    return upper;
}

}  // namespace

const std::vector<PowerSetting>& PowerSettings()
{
    static const std::vector<PowerSetting> settings = {
        {L"sleep-timeout", GUID_SLEEP_SUBGROUP, GUID_STANDBY_TIMEOUT},
        {L"wake-timers", GUID_SLEEP_SUBGROUP, GUID_ALLOW_RTC_WAKE},
        {L"away-mode", GUID_SLEEP_SUBGROUP, GUID_ALLOW_AWAYMODE},
        {L"hybrid-sleep", GUID_SLEEP_SUBGROUP, GUID_HIBERNATE_FASTS4_POLICY},
        {L"processor-min", GUID_PROCESSOR_SETTINGS_SUBGROUP, GUID_PROCESSOR_THROTTLE_MINIMUM},
        {L"processor-max", GUID_PROCESSOR_SETTINGS_SUBGROUP, GUID_PROCESSOR_THROTTLE_MAXIMUM},
        {L"display-timeout", GUID_VIDEO_SUBGROUP, GUID_VIDEO_POWERDOWN_TIMEOUT},
        {L"brightness", GUID_VIDEO_SUBGROUP, GUID_DEVICE_POWER_POLICY_VIDEO_BRIGHTNESS},
        {L"power-button", GUID_SYSTEM_BUTTON_SUBGROUP, GUID_POWERBUTTON_ACTION},
        {L"password-on-wake", NO_SUBGROUP_GUID, GUID_LOCK_CONSOLE_ON_WAKE},
    };
    return settings;
}

namespace {

bool SameGuid(const GUID& a, const GUID& b) { return std::memcmp(&a, &b, sizeof(GUID)) == 0; }

// Null for a setting that plans do not have.
const PowerSetting* FindSetting(const GUID& setting)
{
    const auto known = std::ranges::find_if(
        PowerSettings(), [&](const PowerSetting& s) { return SameGuid(s.setting, setting); });
    return known != PowerSettings().end() ? &*known : nullptr;
}

}  // namespace

bool StandsUnder(const GUID* subgroup, const GUID& setting)
{
    const PowerSetting* known = FindSetting(setting);
    return known && SameGuid(known->subgroup, subgroup ? *subgroup : NO_SUBGROUP_GUID);
}

std::wstring_view PowerSettingName(const GUID& setting)
{
    const PowerSetting* known = FindSetting(setting);
    return known ? known->name : L"?";
}

PowerPlans::PowerPlans()
{
    for (const PredefinedPlan& predefined : kPredefined) {
        PowerPlan& plan = m_plans[predefined.guid];
        plan.guid = plan.personality = predefined.guid;
        plan.name = predefined.name;
        for (std::size_t i = 0; i < PowerSettings().size(); ++i) {
            plan.values[PowerSettings()[i].setting] = predefined.values[i];
        }
    }
    Activate(GUID_TYPICAL_POWER_SAVINGS);
}

PowerPlan& PowerPlans::Add(std::wstring_view name, const GUID& guid, const GUID& like)
{
    PowerPlan plan = m_plans.at(like);
    plan.guid = guid;
    plan.name = name;
    return m_plans[guid] = std::move(plan);
}

bool PowerPlans::Delete(const GUID& plan)
{
    return !SameGuid(plan, m_active) && m_plans.erase(plan) > 0;
}

PowerPlan* PowerPlans::Find(const GUID& guid)
{
    const auto found = m_plans.find(guid);
    return found != m_plans.end() ? &found->second : nullptr;
}

PowerPlan* PowerPlans::Find(std::wstring_view name)
{
    const auto found = std::ranges::find(
        m_plans, Upper(name), [](const auto& entry) { return Upper(entry.second.name); });
    return found != m_plans.end() ? &found->second : nullptr;
}

std::optional<DWORD> PowerPlans::InForce(const GUID& setting, PowerSource source) const
{
    const auto found = m_in_force.find(setting);
    if (found == m_in_force.end()) return std::nullopt;
    return found->second[source];
}

std::optional<DWORD> PowerPlans::Read(const GUID& plan, const GUID& setting, PowerSource source)
{
    const PowerPlan* found = Find(plan);
    if (!found) return std::nullopt;
    const auto value = found->values.find(setting);
    if (value == found->values.end()) return std::nullopt;
    return value->second[source];
}

bool PowerPlans::Write(const GUID& plan, const GUID& setting, PowerSource source, DWORD value)
{
    if (!Read(plan, setting, source)) return false;
    Find(plan)->values[setting][source] = value;
    return true;
}

bool PowerPlans::Activate(const GUID& plan)
{
    const PowerPlan* next = Find(plan);
    if (!next) return false;
    m_active = plan;
    m_in_force = next->values;
    return true;
}

}  // namespace virtual_pc
