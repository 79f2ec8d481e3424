// What the state machine's operations leave wrong is led back after a quiet time: the lives that
// end so as scripts, each under many schedules, and those that a script cannot tell.

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <sstream>

#include "log/log.h"
#include "pc/player.h"
#include "platform/power.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/core/thread.h"
#include "reconciler/reconciler.h"
#include "state/activity.h"
#include "tests/never_sleep_pc_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;
namespace fs = std::filesystem;

namespace {

const fs::path kLives = fs::path(HOLV_SOURCE_DIR) / "scenarios" / "led_back";

std::vector<std::string> LivesThatGoWrong()
{
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(kLives)) {
        names.push_back(entry.path().stem().string());
    }
    return names;
}

class LedBackTest : public ::testing::TestWithParam<std::string>
{
};

TEST_P(LedBackTest, TheUserFindsThePcAsItWas)
{
    for (const Machine::Options& life : LivesOf({.seeds = 10, .free = 2})) {
        const PlayOptions options{
            .machine = life, .image = HOLV_IMAGE, .resources = HOLV_SOURCE_DIR "/resources"};
        std::ostringstream story;
        std::ostringstream errors;
        ASSERT_EQ(PlayScripts({kLives / (GetParam() + ".pc")}, options, story, errors), 0)
            << LifeTrace(life) << "\n"
            << errors.str() << story.str();
    }
}

INSTANTIATE_TEST_SUITE_P(All, LedBackTest, ::testing::ValuesIn(LivesThatGoWrong()),
                         [](const auto& life) { return life.param; });

// "holvctl status" tells a correction in the words of its rule.
TEST(ReconcilerTest, AScenarioTellsEachRulesCorrection)
{
    std::string scenarios;
    for (const fs::directory_entry& entry :
         fs::recursive_directory_iterator(kLives.parent_path())) {
        if (entry.path().extension() != ".pc") continue;
        std::ifstream file(entry.path());
        scenarios.append(std::istreambuf_iterator<char>(file), {});
    }
    for (const Rule& rule : Rules()) {
        const std::string told =
            "expect ctl says \"the service corrected itself: " + ToUtf8(rule.wrong) +
            "; it tried " + ToUtf8(rule.remedy) + ".\"";
        EXPECT_NE(scenarios.find(told), std::string::npos) << told;
    }
}

class LedBackPc : public NeverSleepPc
{
public:
    explicit LedBackPc(const Machine::Options& life = DrawnSchedule()) : NeverSleepPc(life)
    {
        Set(L"LoggingEnabled", kLogToDebugger);
        pc.user.Works();
    }
    ~LedBackPc() { pc.Watch(nullptr, {}); }

    // Lets the other threads run until the service has received `line` once more, and then until
    // its handler has returned.
    void AwaitHandled(const std::function<void()>& what, const char* line)
    {
        const int seen = heard.Times(line);
        what();
        for (int turn = 0; turn < 2'000 && heard.Times(line) == seen; ++turn) Yield();
        for (int turn = 0; turn < 1000; ++turn) Yield();
    }

private:
    void Yield() { pc.scheduler.Yield(*Thread::Self()); }
};

// While the state machine enters never-sleep mode, the user is back for a moment: the loop's reset
// absorbs the second signal to enter it, and the way to normal use is what it takes next.
TEST(ReconcilerTest, AwayModeThatAnEntryHasAbsorbedIsEntered)
{
    if (kRunFree) GTEST_SKIP() << "needs threads that run one at a time";
    int absorbed = 0;
    Storm({.seeds = 10}, [&](const Machine::Options& life) {
        LedBackPc user(life);
        user.StartService();
        // The entry clears it, and holds no lock then.
        auto* const pending = static_cast<std::atomic<std::int32_t>*>(
            user.view.Symbol("_ZN16CNeverSleepState20m_bIdleExpiryPendingE"));
        *pending = TRUE;
        bool first = true;
        user.pc.Watch(pending, [&](std::int32_t, std::int32_t) {
            if (!std::exchange(first, false)) return;
            user.AwaitHandled([&] { user.pc.user.Input(); }, "**** User Present");
            user.AwaitHandled([&] { user.pc.sleep.Ask(L"test"); }, "**** Awaymode ON");
        });
        user.pc.sleep.Ask(L"test");
        user.pc.RunFor(1s);
        ASSERT_TRUE(user.pc.sleep.away());
        // Another thread may come upon the change first, and then the signal is not lost.
        if (user.State() == "S0_NORMAL") ++absorbed;
        user.pc.RunFor(1min);
        EXPECT_EQ(user.State(), "HOLV_IDLE");
        user.ExpectConsistent("in away mode");
        user.pc.user.Input();
        user.pc.RunFor(1s);
        user.ExpectNormalUse("the user is back");
        user.StopService();
    });
    EXPECT_GT(absorbed, 0);
}

// A timer wakes the PC, and it is asleep again within the second before never-sleep mode would
// begin. The entry goes on when the user wakes it, and may put it to sleep again in front of him.
TEST(ReconcilerTest, AnEntryThatASleepHasCutShortDoesNotLast)
{
    Storm({.seeds = 20, .free = 5}, [](const Machine::Options& life) {
        LedBackPc user(life);
        user.StartService();
        for (const wchar_t* plan : {L"Balanced", L"Power saver"}) {
            user.pc.power.Write(user.pc.power.FindPlan(plan)->guid, GUID_ALLOW_AWAYMODE,
                                PowerSource::ac, 0);
        }
        user.pc.power.Activate(user.pc.power.active().guid);
        user.pc.sleep.Ask(L"test");
        user.pc.RunFor(1h);
        user.pc.sleep.WakeByTimer();
        user.pc.RunFor(500ms);
        user.pc.sleep.Ask(L"test");
        user.pc.RunFor(1h);
        for (int press = 0; press < 3; ++press) {
            user.pc.sleep.WakeByUser();
            user.pc.user.Works();
            user.pc.RunFor(20s);
        }
        user.pc.RunFor(40s);
        user.ExpectNormalUse("the user has woken it");
        user.pc.RunFor(10min);
        user.ExpectNormalUse("he works");
        user.StopService();
    });
}

TEST(ReconcilerTest, APcWithoutS3IsNotHeldAwake)
{
    LedBackPc desk;
    desk.pc.power.s3_supported = false;
    desk.StartService();
    for (int day = 0; day < 3; ++day) {
        desk.pc.user.Works();
        desk.pc.RunFor(8h);
        desk.pc.user.Leaves();
        desk.pc.RunFor(16h);
        EXPECT_FALSE(desk.pc.power.Held(PowerRequestSystemRequired));
        EXPECT_FALSE(desk.pc.power.Held(PowerRequestAwayModeRequired));
    }
    EXPECT_EQ(desk.heard.Times("This PC does not support S3"), 1);
    desk.StopService();
}

TEST(ReconcilerTest, EndsAtOnceAndHearsOfNoChangeAfterwards)
{
    StormOnPc({.seeds = 20}, [](Machine& pc, const Machine::Options&) {
        pc.RunUntilEnd(pc.Start([] {
            StartReconciler();
            Sleep(60'000);
            const ULONGLONG before = GetTickCount64();
            EndReconciler();
            EXPECT_EQ(GetTickCount64(), before);
            const Activity change(Activity::Kind::fact);
            return 0;
        }));
    });
}

TEST(ReconcilerTest, LooksOnlyAfterAChange)
{
    LedBackPc desk;
    desk.pc.faults.Set("PowerSetRequest", {.count = Faults::kAlways});
    desk.StartService();
    desk.pc.RunUntil([&] { return desk.heard.Has("attempt 3"); }, 5min);
    desk.pc.RunFor(1s);
    const std::uint64_t tried = desk.pc.faults.CallsOf("PowerSetRequest");
    const auto looks = [&] { return desk.pc.faults.CallsOf("GetSystemPowerStatus"); };
    const auto expect_rest = [&](const char* when) {
        desk.pc.RunFor(1min);
        const std::uint64_t before = looks();
        desk.pc.RunFor(20min);
        EXPECT_LE(looks(), before + 1) << when;
    };
    expect_rest("after three attempts");
    const auto announce = [&](const GUID& setting, BYTE value) {
        desk.pc.announcer.Announce({.control = SERVICE_CONTROL_POWEREVENT,
                                    .event = PBT_POWERSETTINGCHANGE,
                                    .setting = setting,
                                    .data = {value, 0, 0, 0}});
    };
    announce(GUID_MONITOR_POWER_ON, 1);
    desk.pc.RunFor(1min);
    EXPECT_EQ(desk.pc.faults.CallsOf("PowerSetRequest"), tried) << "none after a notice";
    desk.pc.faults.ClearAll();
    const std::map<std::string, std::function<void()>> changes{
        {"the clock is set", [&] { desk.pc.SetClock(desk.pc.clock()); }},
        {"the user is there", [&] { announce(GUID_GLOBAL_USER_PRESENCE, 0); }},
        {"the PC is woken", [&] { desk.pc.announcer.PowerEvent(PBT_APMRESUMESUSPEND); }}};
    for (const auto& [name, change] : changes) {
        change();
        desk.pc.RunFor(39s);
        const std::uint64_t handled = looks();
        desk.pc.RunFor(2s);
        EXPECT_GT(looks(), handled) << name;
    }
    desk.pc.power.Activate(GUID_MIN_POWER_SAVINGS);
    desk.pc.RunFor(30s);
    const std::uint64_t flushed = desk.pc.faults.CallsOf("RegFlushKey");
    desk.pc.RunFor(30s);
    EXPECT_EQ(desk.pc.faults.CallsOf("RegFlushKey"), flushed + 1) << "when it is quiet";
    desk.pc.announcer.PowerEvent(PBT_APMSUSPEND);
    expect_rest("at the word that the PC sleeps");
    desk.StopService();
}

}  // namespace
