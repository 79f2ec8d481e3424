// The service's process ends, or the PC's power, at any call that the service makes, in any state,
// and also while the next process restores: after the next start and stop everything is as it was.

#include "tests/users_pc.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

// Starts the service, if it does not start by itself with a PC that is off.
DWORD Start(UsersPc& user)
{
    DWORD error = ERROR_SUCCESS;
    if (user.pc.on()) {
        error = user.pc.services.Start(kServiceName);
    } else {
        user.pc.Boot();
    }
    user.pc.RunFor(1s);
    return error;
}

// Stops the service, if it still runs.
void End(UsersPc& user)
{
    const Process* const service = user.view.service();
    if (!service) return;
    user.pc.services.Control(kServiceName, SERVICE_CONTROL_STOP);
    user.pc.RunUntilEnd(*service);
}

// A day through all states: normal use, active, idle, do-not-disturb, asleep, normal use, the
// feature's end.
void Live(UsersPc& user)
{
    Start(user);
    for (const int slot : {enter_active, enter_idle, enter_dnd}) {
        user.view.Raise(slot);
        user.pc.RunFor(1s);
    }
    user.pc.announcer.PowerEvent(PBT_APMSUSPEND);
    user.pc.RunFor(1s);
    user.pc.announcer.PowerEvent(PBT_APMRESUMESUSPEND);
    user.pc.RunFor(1s);
    user.view.Raise(enter_active);
    user.pc.RunFor(1s);
    End(user);
}

// Starts the service once more, and looks at what is left when the user is back.
void ExpectNothingIsLeft(UsersPc& user)
{
    EXPECT_EQ(Start(user), DWORD{ERROR_SUCCESS});
    user.pc.user.Input();
    user.view.Raise(enter_s0);
    user.pc.RunFor(1s);
    EXPECT_EQ(user.State(), "S0_NORMAL");
    ASSERT_TRUE(user.view.service()) << "it has not started";
    user.StopService();
    EXPECT_EQ(user.Differences(), "");
    EXPECT_FALSE(user.HasJournal());
}

struct Blow
{
    const char* name;
    void (Machine::*at_call)(std::wstring_view program, std::uint64_t number);
    void (*now)(UsersPc& user);
};

void PrintTo(const Blow& blow, std::ostream* out) { *out << blow.name; }

constexpr Blow kBlows[] = {
    {"Kill", &Machine::KillAtCall, [](UsersPc& user) { user.Kill(); }},
    {"PowerCut", &Machine::CutPowerAtCall, [](UsersPc& user) { user.pc.CutPower(); }},
};

class CrashSweepTest : public ::testing::TestWithParam<Blow>
{
protected:
    void SetUp() override
    {
        if (kRunFree) GTEST_SKIP() << "needs a day that makes the same calls each time";
    }

    // Each life with the blow at another call. `before` lives until the process starts that it
    // strikes, and `live` from then on.
    static void SweepCalls(std::uint64_t least, const std::function<void(UsersPc& user)>& before,
                           const std::function<void(UsersPc& user)>& live)
    {
        constexpr std::uint64_t kStride = 20;
        Sweep(kStride, least, [&](std::uint64_t call) {
            UsersPc user(DrawnSchedule(), 0);
            user.pc.RunFor(Unwritten::kLazyWrite);
            before(user);
            (user.pc.*GetParam().at_call)(user.image.path, call);
            live(user);
            const bool struck = user.pc.processes().back()->killed();
            ExpectNothingIsLeft(user);
            return struck;
        });
    }
};

TEST_P(CrashSweepTest, ABlowAtAnyCallLeavesNothingBehindAfterTheNextStart)
{
    SweepCalls(
        1000, [](UsersPc&) {}, Live);
}

TEST_P(CrashSweepTest, NeitherDoesASecondOneWhileTheNextProcessRestores)
{
    SweepCalls(
        300,
        [](UsersPc& user) {
            Start(user);
            user.Enter("HOLV_DND");
            GetParam().now(user);
        },
        [](UsersPc& user) {
            Start(user);
            End(user);
        });
}

INSTANTIATE_TEST_SUITE_P(By, CrashSweepTest, ::testing::ValuesIn(kBlows),
                         [](const auto& blow) { return std::string(blow.param.name); });

}  // namespace
