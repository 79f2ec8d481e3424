// A handler's test of the state and the change of the plans that rests on it come before or after a
// change of state, and not between its leave and its entry.

#include "log/log.h"
#include "platform/kernel.h"
#include "tests/never_sleep_pc_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

DWORD SleepTimeout(Machine& pc, PowerSource source)
{
    return pc.power.Read(GUID_MAX_POWER_SAVINGS, GUID_STANDBY_TIMEOUT, source).value_or(0);
}

// Never-sleep mode is not allowed on battery, where its plan gets a short sleep time-out. The user
// comes back from away mode and pulls the plug at the same moment.
TEST(StateChangeTest, AUserWhoComesBackAndPullsThePlugFindsNoShortSleepTimeout)
{
    Storm({.seeds = 100, .free = kRunFree ? 40u : 0u}, [](const Machine::Options& life) {
        NeverSleepPc desk(life);
        desk.Set(L"LoggingEnabled", kLogToDebugger);
        desk.Set(L"EnableHOLVOnDc", 0);
        desk.pc.user.Works();
        const DWORD ac = SleepTimeout(desk.pc, PowerSource::ac);
        const DWORD dc = SleepTimeout(desk.pc, PowerSource::dc);
        desk.StartService();
        desk.pc.sleep.Ask(L"test");
        desk.pc.RunFor(10s);
        ASSERT_TRUE(desk.State() == "HOLV_ACTIVE" || desk.State() == "HOLV_IDLE") << desk.State();
        desk.pc.Start([&desk, turns = life.seed % 40] {
            desk.pc.user.Input();
            for (std::uint64_t turn = 0; turn < turns; ++turn) Sleep(0);
            desk.pc.power.RunOnBattery(80);
            return 0;
        });
        desk.pc.RunFor(1min);
        desk.ExpectNormalUse("the user is back");
        EXPECT_EQ(SleepTimeout(desk.pc, PowerSource::ac), ac);
        EXPECT_EQ(SleepTimeout(desk.pc, PowerSource::dc), dc);
        desk.StopService();
    });
}

}  // namespace
