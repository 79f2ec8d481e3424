// A user's return leads to normal use, also where the state machine has absorbed the event that
// says so; and a user who has left again is left alone.

#include "log/log.h"
#include "platform/virtual/core/thread.h"
#include "tests/never_sleep_pc_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

constexpr int kEnterS0 = 0;
constexpr int kEnterActive = 1;

class ReturnPc : public NeverSleepPc
{
public:
    explicit ReturnPc(const Machine::Options& life = DrawnSchedule()) : NeverSleepPc(life)
    {
        Set(L"LoggingEnabled", kLogToDebugger);
        pc.user.Works();
        StartService();
    }
    ~ReturnPc() { pc.Watch(nullptr, {}); }

    std::atomic<std::int32_t>* Find(const char* symbol) const
    {
        return static_cast<std::atomic<std::int32_t>*>(view.Symbol(symbol));
    }

    int Signals() const
    {
        return heard.Times("The user is back but normal use has not begun, the state is");
    }

    // The state machine enters normal use. Amid that, the PC goes to sleep, or into away mode, and
    // the user wakes it; only when the service has handled all of it does the entry go on.
    void ReturnAmidTheEntry(bool from_away_mode)
    {
        const GUID plan = pc.power.active().guid;
        pc.power.Write(plan, GUID_ALLOW_AWAYMODE, PowerSource::ac, from_away_mode);
        pc.power.Activate(plan);
        view.Raise(kEnterActive);
        pc.RunFor(1s);
        // The state machine finds the film while it enters normal use, and holds no lock then.
        const auto film = pc.power.NewRequest(L"C:\\Film.exe", L"a film");
        pc.power.SetRequest(*film, PowerRequestDisplayRequired);
        pc.Watch(Find("_ZN16CNeverSleepState18m_bDisplayRequiredE"), [&](std::int32_t,
                                                                         std::int32_t) {
            const int seen = heard.Times("**** User Present");
            pc.sleep.Ask(L"test");
            if (from_away_mode) pc.user.Input();
            // Until the handler has received the user's presence, which is announced last, and then
            // until it has returned.
            for (int turn = 0; turn < 10'000 && heard.Times("**** User Present") == seen; ++turn) {
                pc.scheduler.Yield(*Thread::Self());
            }
            for (int turn = 0; turn < 1000; ++turn) pc.scheduler.Yield(*Thread::Self());
        });
        view.Raise(kEnterS0);
        pc.RunFor(1s);
        if (!from_away_mode) pc.sleep.WakeByUser();
        pc.RunFor(1s);
        pc.Watch(nullptr, {});
        pc.power.ClearRequest(*film, PowerRequestDisplayRequired);
    }
};

class UserReturnTest : public ::testing::Test
{
protected:
    // Free threads cannot be stopped in the middle of an operation. The sleep races cover the same
    // situation there.
    void SetUp() override
    {
        if (kRunFree) GTEST_SKIP() << "needs threads that run one at a time";
    }
};

TEST_F(UserReturnTest, AReturnThatTheEntryIntoNormalUseAbsorbedLeadsThereAfterAQuietTime)
{
    int absorbed = 0;
    Storm({.seeds = 10}, [&](const Machine::Options& life) {
        for (const bool from_away_mode : {false, true}) {
            SCOPED_TRACE(from_away_mode ? "away" : "asleep");
            ReturnPc user(life);
            user.ReturnAmidTheEntry(from_away_mode);
            // Another thread may come upon the change first, and then the signal is not lost.
            const bool lost = user.State() == (from_away_mode ? "HOLV_ACTIVE" : "HOLV_S3");
            absorbed += lost;
            user.pc.RunFor(37s);
            EXPECT_EQ(user.Signals(), 0) << "the quiet time is not over";
            user.pc.RunFor(3s);
            user.ExpectNormalUse("after the quiet time");
            user.pc.RunFor(10min);
            EXPECT_EQ(user.Signals(), lost ? 1 : 0);
            user.StopService();
        }
    });
    EXPECT_GT(absorbed, 0);
}

TEST_F(UserReturnTest, AUserWhoLeavesWithinTheQuietTimeIsNotBroughtBack)
{
    ReturnPc user;
    user.ReturnAmidTheEntry(true);
    user.pc.RunFor(20s);
    user.pc.sleep.Ask(L"test");
    user.pc.RunFor(10min);
    EXPECT_TRUE(user.pc.sleep.away());
    EXPECT_NE(user.State(), "S0_NORMAL");
    EXPECT_EQ(user.Signals(), 0);
    user.pc.user.Input();
    user.pc.RunFor(1s);
    user.ExpectNormalUse("the user has come for good");
    user.StopService();
}

TEST_F(UserReturnTest, AStopWithinTheQuietTimeIsImmediate)
{
    ReturnPc user;
    user.ReturnAmidTheEntry(false);
    user.pc.RunFor(20s);
    const Instant before = user.pc.now();
    user.StopService();
    EXPECT_EQ(user.pc.now(), before);
}

// A fault that no signal cures: every entry into normal use ends in the wrong state.
TEST(UserReturnLimitTest, GivesUpAfterThreeAttemptsUntilTheNextReturn)
{
    ReturnPc user;
    std::atomic<std::int32_t>* state = user.Find("_ZN16CNeverSleepState14m_eSystemStateE");
    user.pc.Watch(state, [state](std::int32_t, std::int32_t to) {
        if (to == 0) *state = 1;
    });
    for (int returns = 1; returns <= 2; ++returns) {
        user.pc.sleep.Ask(L"test");
        user.pc.RunFor(1min);
        user.pc.user.Input();
        user.pc.RunFor(1h);
        EXPECT_EQ(user.Signals(), 3 * returns);
        EXPECT_EQ(user.heard.Times("giving up until something changes"), returns);
    }
    user.pc.Watch(nullptr, {});
    user.StopService();
}

}  // namespace
