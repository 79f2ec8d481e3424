// The service's process ends at any call that it makes, in any state, and also while the next one
// restores: after the next start and stop everything is as it was.

#include <functional>

#include "tests/users_pc.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

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
    user.TryToStart();
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

// Starts the service once more, stops it, and looks at what is left.
void ExpectNothingIsLeft(UsersPc& user)
{
    user.StartService();
    user.StopService();
    EXPECT_EQ(user.Differences(), "");
    EXPECT_FALSE(user.HasJournal());
}

class CrashSweepTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (kRunFree) GTEST_SKIP() << "needs a day that makes the same calls each time";
    }
};

// Every tenth call, by the day's seed; all are tried in some weeks.
constexpr std::uint64_t kStride = 10;
std::uint64_t FirstCall() { return 1 + DrawnSchedule().seed % kStride; }

// Lives one life after the other, each with a kill at another call, until a life has fewer calls.
// Returns how many were killed. `live` plans the kill, and ends with a service that does not run.
std::uint64_t Sweep(const std::function<void(UsersPc& user, std::uint64_t call)>& live)
{
    std::uint64_t kills = 0;
    for (std::uint64_t n = FirstCall(); !testing::Test::HasFailure(); n += kStride, ++kills) {
        SCOPED_TRACE("killed at call " + std::to_string(n));
        UsersPc user;
        user.pc.registry.SetDword(kUserKey, L"LoggingEnabled", 0);
        live(user, n);
        const bool killed = user.pc.processes().back()->killed();
        ExpectNothingIsLeft(user);
        if (!killed) break;
    }
    return kills;
}

TEST_F(CrashSweepTest, AKillAtAnyCallLeavesNothingBehindAfterTheNextStart)
{
    const std::uint64_t kills = Sweep([](UsersPc& user, std::uint64_t call) {
        user.pc.KillAtCall(user.image.path, call);
        Live(user);
    });
    EXPECT_GE(kills, 100u);
}

TEST_F(CrashSweepTest, NeitherDoesASecondKillWhileTheNextProcessRestores)
{
    const std::uint64_t kills = Sweep([](UsersPc& user, std::uint64_t call) {
        user.StartService();
        user.Enter("HOLV_DND");
        user.Kill();
        user.pc.KillAtCall(user.image.path, call);
        user.TryToStart();
        End(user);
    });
    EXPECT_GE(kills, 30u);
}

}  // namespace
