// Power plans: the predefined ones and the user's own, their values, and which is active.
// Independent of the machine: Power uses it, and so does the stand-in for the power library that
// Wine lacks.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/power.h"
#include "platform/virtual/base/guid.h"

namespace virtual_pc {

// A setting that plans have, by the name that scripts use.
struct PowerSetting
{
    std::wstring_view name;
    const GUID& subgroup;
    const GUID& setting;
};
const std::vector<PowerSetting>& PowerSettings();
// Whether plans have the setting under this subgroup; no subgroup means those that stand under
// none.
bool StandsUnder(const GUID* subgroup, const GUID& setting);
// The name that scripts use for a setting; "?" for one that plans do not have.
std::wstring_view PowerSettingName(const GUID& setting);

enum class PowerSource
{
    ac,
    dc,
};

struct AcDc
{
    DWORD ac = 0;
    DWORD dc = 0;

    DWORD& operator[](PowerSource source) { return source == PowerSource::ac ? ac : dc; }
    DWORD operator[](PowerSource source) const { return source == PowerSource::ac ? ac : dc; }
};

struct PowerPlan
{
    GUID guid;
    std::wstring name;
    GUID personality;  // the predefined plan that it is like
    std::map<GUID, AcDc, GuidLess> values;
};

class PowerPlans
{
public:
    PowerPlans();

    // A copy of the plan `like` under a name and a GUID of its own.
    PowerPlan& Add(std::wstring_view name, const GUID& guid, const GUID& like);
    // False for an unknown plan, and for the active one, which cannot be deleted.
    bool Delete(const GUID& plan);
    const std::map<GUID, PowerPlan, GuidLess>& all() const { return m_plans; }
    PowerPlan* Find(const GUID& guid);
    // By name, in any letter case.
    PowerPlan* Find(std::wstring_view name);
    const PowerPlan& active() const { return m_plans.at(m_active); }

    // The value in force, which is that of the active plan when it was last activated; nothing when
    // the plan lacks the setting.
    std::optional<DWORD> InForce(const GUID& setting, PowerSource source) const;

    // Nothing, or false, when there is no such plan or the plan lacks the setting.
    std::optional<DWORD> Read(const GUID& plan, const GUID& setting, PowerSource source);
    bool Write(const GUID& plan, const GUID& setting, PowerSource source, DWORD value);
    bool Activate(const GUID& plan);

private:
    std::map<GUID, PowerPlan, GuidLess> m_plans;
    GUID m_active{};
    std::map<GUID, AcDc, GuidLess> m_in_force;
};

}  // namespace virtual_pc
