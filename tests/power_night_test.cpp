// A day of the whole service, through every state and back, with one failing platform call:
// whichever call it is, the service runs to its end and restores what it changed.

#include "platform/virtual/base/guid.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/devices/device.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/power/power_plans.h"
#include "platform/virtual/sound/audio.h"
#include "tests/running_service.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

// The values of plans that differ from `before`. The never-sleep plan's processor maximum is not
// listed when it is 100, to which the service restores it.
std::vector<std::string> Changed(const std::map<GUID, PowerPlan, GuidLess>& before, Power& power)
{
    std::vector<std::string> changed;
    for (const auto& [guid, plan] : before) {
        for (const auto& [setting, values] : plan.values) {
            for (const PowerSource source : {PowerSource::ac, PowerSource::dc}) {
                const std::optional<DWORD> value = power.Read(guid, setting, source);
                if (value == values[source]) continue;
                if (value == 100u && PowerSettingName(setting) == L"processor-max" &&
                    IsEqualGUID(guid, GUID_MAX_POWER_SAVINGS))
                    continue;
                changed.push_back(ToUtf8(plan.name) + " " + ToUtf8(PowerSettingName(setting)));
            }
        }
    }
    return changed;
}

// What a failing call may leave changed: a write its own value, and a read of wake timers, which
// count as allowed then, theirs. A wait that fails ends the service at once, and the state it is in
// is not left: the never-sleep plan keeps the user's brightness and password on wake.
std::size_t MayChange(const std::string& failed)
{
    if (failed == "WaitForMultipleObjects") return 4;
    return failed.starts_with("PowerWrite") || failed.starts_with("PowerRead") ? 1 : 0;
}

// Lives through the day with the n-th call failing. False when there are not so many.
bool LiveThroughADay(std::uint64_t n)
{
    FreshService();
    Machine pc({.free = kRunFree});
    pc.registry.SetDword(kUserKey, L"DndToS3", 1);
    pc.registry.SetDword(kUserKey, L"LoggingLevel", 1);
    pc.registry.SetDword(kUserKey, L"LoggingEnabled", kLogToDebugger);
    const Device& device = pc.devices.AddHolvDevice();
    pc.audio.Add(L"Speakers", eRender, {});
    pc.power.Activate(GUID_MIN_POWER_SAVINGS);
    const std::map<GUID, PowerPlan, GuidLess> before = pc.power.plans();
    {
        const Hold hold(pc);
        pc.faults.FailNth(n);
    }
    const Process& service = pc.Start([] { return RunService(); });
    for (const GlobalEvent event : {EVENT_ENTER_ACTIVE, EVENT_ENTER_IDLE, EVENT_ENTER_S0,
                                    EVENT_ENTER_DND, EVENT_ENTER_S0, EVENT_SERVICE_STOP}) {
        pc.RunFor(10ms);
        // Twice, since the call that fails may be this one.
        for (int twice = 0; twice < 2 && service.running(); ++twice) SignalGlobalEvent(event);
    }
    EXPECT_TRUE(pc.RunUntil([&] { return !service.running(); }, 1min));
    const Function* function = pc.faults.failed();
    const std::string failed = function ? function->name() : "none";
    SCOPED_TRACE(::testing::Message() << "call " << n << ", of " << failed);

    EXPECT_FALSE(service.crashed());
    EXPECT_FALSE(pc.power.Held(PowerRequestAwayModeRequired));
    EXPECT_FALSE(pc.power.Held(PowerRequestSystemRequired));
    if (device.Mode() && failed != "DeviceIoControl" && failed != "WaitForMultipleObjects") {
        EXPECT_EQ(device.Mode(), 0u);
    }
    const std::vector<std::string> changed = Changed(before, pc.power);
    EXPECT_LE(changed.size(), MayChange(failed)) << ::testing::PrintToString(changed);
    // A value that could not be restored stays changed.
    const bool kept =
        (function && function->role() == Role::releases) || failed.starts_with("Unregister");
    if (!kept) {
        EXPECT_EQ(LeftOpenBy(service), "");
    }
    for (const std::string& misuse : pc.misuses()) ADD_FAILURE() << "misuse: " << misuse;
    return function != nullptr;
}

TEST(PowerNightTest, WhicheverPlatformCallFailsThePlansAndRequestsAreGivenBack)
{
    // Free threads make their calls in no fixed order, so that a sample of them is as good.
    const std::uint64_t step = kRunFree ? 23 : 1;
    std::uint64_t n = 1;
    while (LiveThroughADay(n) && !HasFailure()) n += step;
    EXPECT_GT(n, 300u) << "the day's calls";
}

}  // namespace
