// Power source and battery, plans, requests, and the platform device.

#include "pc/commands.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/devices/device.h"

using namespace virtual_pc;

namespace {

// --- Source and battery ---

template <bool short_term>
Action OnBattery(const ScriptLine& line, const Arguments& a)
{
    const std::uint32_t percent = NumberOf(line, a[0]);
    if (percent > 100) throw ScriptError(line, "\"" + a[0] + "\" is no charge of 0 to 100");
    return [=](ScriptContext& context) {
        context.pc.power.RunOnBattery(static_cast<BYTE>(percent), short_term);
        context.pc.Settle();
    };
}

Action OnMains(const ScriptLine&, const Arguments&)
{
    return [](ScriptContext& context) {
        context.pc.power.RunOnMains();
        context.pc.Settle();
    };
}

// --- Plans ---

PowerPlan& FindPlan(const ScriptLine& line, ScriptContext& context, const std::string& name)
{
    PowerPlan* plan = context.pc.power.FindPlan(FromUtf8(name));
    if (!plan) throw ExpectationFailed(line, "there is no plan \"" + name + "\"");
    return *plan;
}

PowerSource SourceOf(const ScriptLine& line, const std::string& text)
{
    return ChoiceOf(line, text, {"ac", "dc"}) == 0 ? PowerSource::ac : PowerSource::dc;
}

GUID SettingOf(const ScriptLine& line, const std::string& text)
{
    std::vector<std::string> names;
    for (const PowerSetting& setting : PowerSettings()) names.push_back(ToUtf8(setting.name));
    return PowerSettings()[ChoiceOf(line, text, {names.begin(), names.end()})].setting;
}

Action ActivatePlan(const ScriptLine& line, const Arguments& a)
{
    return [line, name = a[0]](ScriptContext& context) {
        {
            const Hold hold(context.pc);
            if (!context.pc.power.Activate(FindPlan(line, context, name).guid)) {
                throw ExpectationFailed(line, "a policy names the active plan");
            }
        }
        context.pc.Settle();
    };
}

// Adds a plan `name`, a copy of the plan `like`, with the GUID `guid_text`, or a drawn one where
// that is empty.
Action NewPlan(const ScriptLine& line, const std::string& like, const std::string& name,
               const std::string& guid_text)
{
    const std::optional<GUID> named = ParseGuid(FromUtf8(guid_text));
    if (!named && !guid_text.empty()) {
        throw ScriptError(line, "\"" + guid_text + "\" is no GUID of 36 characters");
    }
    return [=](ScriptContext& context) {
        const Hold hold(context.pc);
        Power& power = context.pc.power;
        const GUID copied = FindPlan(line, context, like).guid;
        GUID guid{0x484F4C56, 0, 0x4000, {0x80}};
        guid.Data4[7] = static_cast<BYTE>(power.plans().size());
        if (named && power.FindPlan(*named)) {
            throw ExpectationFailed(line, "a plan with this GUID exists already");
        }
        power.AddPlan(FromUtf8(name), named.value_or(guid), copied);
    };
}

Action AddPlan(const ScriptLine& line, const Arguments& a)
{
    return NewPlan(line, "Balanced", a[0], a[1]);
}

Action CopyPlan(const ScriptLine& line, const Arguments& a)
{
    return NewPlan(line, a[0], a[1], a[2]);
}

Action DeletePlan(const ScriptLine& line, const Arguments& a)
{
    return [line, name = a[0]](ScriptContext& context) {
        const Hold hold(context.pc);
        if (context.pc.power.DeletePlan(FindPlan(line, context, name).guid)) return;
        throw ExpectationFailed(line, "the active plan cannot be deleted");
    };
}

Action RenamePlan(const ScriptLine& line, const Arguments& a)
{
    return [=](ScriptContext& context) {
        const Hold hold(context.pc);
        FindPlan(line, context, a[0]).name = FromUtf8(a[1]);
    };
}

Action TakeSetting(const ScriptLine& line, const Arguments& a)
{
    const GUID setting = SettingOf(line, a[1]);
    return [=, name = a[0]](ScriptContext& context) {
        const Hold hold(context.pc);
        FindPlan(line, context, name).values.erase(setting);
    };
}

Action SetPolicy(const ScriptLine& line, const Arguments& a)
{
    return [line, name = a[0]](ScriptContext& context) {
        {
            const Hold hold(context.pc);
            context.pc.power.SetPolicy(FindPlan(line, context, name).guid);
        }
        context.pc.Settle();
    };
}

Action EndPolicy(const ScriptLine&, const Arguments&)
{
    return [](ScriptContext& context) { context.pc.power.EndPolicy(); };
}

// Like the control panel, activates the active plan again after a change, which puts the change
// into force.
Action SetPlan(const ScriptLine& line, const Arguments& a)
{
    const PowerSource source = SourceOf(line, a[1]);
    const GUID setting = SettingOf(line, a[2]);
    const std::uint32_t value = NumberOf(line, a[3]);
    return [=, name = a[0]](ScriptContext& context) {
        {
            const Hold hold(context.pc);
            Power& power = context.pc.power;
            const PowerPlan& plan = FindPlan(line, context, name);
            power.Write(plan.guid, setting, source, value);
            if (&plan == &power.active()) power.Activate(plan.guid);
        }
        context.pc.Settle();
    };
}

Action ExpectActivePlan(const ScriptLine& line, const Arguments& a)
{
    return [line, name = a[0]](ScriptContext& context) {
        const Hold hold(context.pc);
        const PowerPlan& active = context.pc.power.active();
        if (&FindPlan(line, context, name) == &active) return;
        throw ExpectationFailed(
            line, "expected plan " + name + " active, but it is " + ToUtf8(active.name));
    };
}

Action ExpectPlan(const ScriptLine& line, const Arguments& a)
{
    const PowerSource source = SourceOf(line, a[1]);
    const GUID setting = SettingOf(line, a[2]);
    const std::uint32_t expected = NumberOf(line, a[3]);
    return [=](ScriptContext& context) {
        const Hold hold(context.pc);
        const GUID plan = FindPlan(line, context, a[0]).guid;
        const std::optional<DWORD> value = context.pc.power.Read(plan, setting, source);
        if (value == expected) return;
        throw ExpectationFailed(
            line, "expected " + a[0] + " " + a[1] + " " + a[2] + " to be " + a[3] + ", but it " +
                      (value ? "is " + std::to_string(*value) : "has no such setting"));
    };
}

Action ExpectInForce(const ScriptLine& line, const Arguments& a)
{
    const GUID setting = SettingOf(line, a[0]);
    const std::uint32_t expected = NumberOf(line, a[1]);
    return [=](ScriptContext& context) {
        const Hold hold(context.pc);
        const std::optional<DWORD> value = context.pc.power.InForce(setting);
        if (value == expected) return;
        throw ExpectationFailed(line,
                                "expected " + a[0] + " in force to be " + a[1] + ", but it " +
                                    (value ? "is " + std::to_string(*value) : "is not known"));
    };
}

void ShowPlans(ScriptContext& context)
{
    const Hold hold(context.pc);
    for (const auto& [guid, plan] : context.pc.power.plans()) {
        context.out << ToUtf8(plan.name) << " (" << ToUtf8(FormatGuid(guid)) << ")"
                    << (&plan == &context.pc.power.active() ? ", active" : "") << "\n";
        for (const PowerSetting& setting : PowerSettings()) {
            const auto values = plan.values.find(setting.setting);
            if (values == plan.values.end()) continue;
            context.out << "  " << ToUtf8(setting.name) << " ac " << values->second.ac << " dc "
                        << values->second.dc << "\n";
        }
    }
}

// --- Requests ---

Action ExpectRequest(const ScriptLine& line, const Arguments& a)
{
    const auto type =
        static_cast<POWER_REQUEST_TYPE>(ChoiceOf(line, a[0], {"display", "system", "away"}));
    const bool held = ChoiceOf(line, a[1], {"released", "held"}) == 1;
    return [=](ScriptContext& context) {
        if (context.pc.power.Held(type) == held) return;
        throw ExpectationFailed(line, "expected request " + a[0] + " " + a[1] + ", but it is " +
                                          (held ? "released" : "held"));
    };
}

void ShowRequests(ScriptContext& context) { context.out << ToUtf8(context.pc.power.Listing()); }

// --- The platform device ---

constexpr std::string_view kHolvDevice = R"(ACPI\QRX5071)";

// A device with the platform device's hardware id gets its driver.
Action AddDevice(const ScriptLine&, const Arguments& a)
{
    return [id = a[0]](ScriptContext& context) {
        if (id.find(kHolvDevice) != id.npos) {
            context.pc.devices.AddHolvDevice(FromUtf8(id));
        } else {
            context.pc.devices.Add(FromUtf8(id));
        }
    };
}

// The device with this id; for an empty id the first that has an interface.
Device& FindDevice(const ScriptLine& line, const ScriptContext& context, const std::string& id)
{
    for (const auto& device : context.pc.devices.All()) {
        const bool meant = id.empty() ? !device->Interfaces().empty()
                                      : context.pc.devices.Find(FromUtf8(id)) == device.get();
        if (meant) return *device;
    }
    throw ExpectationFailed(line, "there is no " + (id.empty() ? "platform device" : id));
}

Action RemoveDevice(const ScriptLine& line, const Arguments& a)
{
    return [line, id = a[0]](ScriptContext& context) {
        FindDevice(line, context, id).SetPresent(false);
    };
}

Action FailDevice(const ScriptLine& line, const Arguments& a)
{
    const DWORD error = NumberOf(line, a[0]);
    return [=](ScriptContext& context) { FindDevice(line, context, "").FailRequests(error); };
}

std::string ModeText(const Device& device)
{
    const std::optional<DWORD> mode = device.Mode();
    return mode ? "mode " + std::to_string(*mode) : "no mode yet";
}

Action ExpectMode(const ScriptLine& line, const Arguments& a)
{
    const DWORD mode = NumberOf(line, a[0]);
    return [=](ScriptContext& context) {
        const Device& device = FindDevice(line, context, "");
        if (device.Mode() == mode) return;
        throw ExpectationFailed(
            line, "expected device mode " + a[0] + ", but it has " + ModeText(device));
    };
}

void ShowDevices(ScriptContext& context)
{
    for (const auto& device : context.pc.devices.All()) {
        context.out << ToUtf8(device->instance_id()) << (device->Present() ? "" : ", taken out");
        if (!device->Interfaces().empty()) context.out << ", " << ModeText(*device);
        context.out << "\n";
    }
}

}  // namespace

std::vector<Command> PowerCommands()
{
    return {
        {"power ac", "plugs the PC in", OnMains},
        {"power battery PERCENT", "runs the PC on its battery, at a charge", OnBattery<false>},
        {"power ups PERCENT", "runs the PC on an uninterruptible supply, at a charge",
         OnBattery<true>},
        {"plan active NAME", "the user activates a power plan", ActivatePlan},
        {"plan set NAME SOURCE SETTING VALUE",
         "the user changes a setting, by its name in show plans, for ac or dc", SetPlan},
        {"plan add NAME [GUID]", "the user adds a plan, like Balanced", AddPlan},
        {"plan copy FROM NAME [GUID]", "the user makes a plan from another", CopyPlan},
        {"plan delete NAME", "the user deletes a plan that is not active", DeletePlan},
        {"plan rename NAME OTHER", "the user gives a plan another name", RenamePlan},
        {"plan lacks NAME SETTING", "takes a setting out of a plan", TakeSetting},
        {"plan policy NAME", "a policy activates a plan, and refuses any other", SetPolicy},
        {"plan free", "ends the policy about the active plan", EndPolicy},
        {"expect plan active NAME", "a plan is active", ExpectActivePlan},
        {"expect plan NAME SOURCE SETTING VALUE", "a setting of a plan is VALUE", ExpectPlan},
        {"expect in-force SETTING VALUE",
         "a setting has the value VALUE: a plan's own, as of the plan's last activation",
         ExpectInForce},
        {"show plans", "the power plans and their values", Show<ShowPlans>},
        {"expect request TYPE HELD", "display, system or away is held or released", ExpectRequest},
        {"show requests", "the power requests, as the system lists them", Show<ShowRequests>},
        {"device add ID", "plugs a device in", AddDevice},
        {"device remove [ID]", "takes a device out, or the platform device without an ID",
         RemoveDevice},
        {"device fails ERROR", "makes the platform device refuse requests; 0 ends that",
         FailDevice},
        {"expect device mode N", "the platform device's mode", ExpectMode},
        {"show devices", "the devices, and the platform device's mode", Show<ShowDevices>},
    };
}
