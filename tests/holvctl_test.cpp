// What holvctl says of the service by the state that it publishes, where no scenario tells it.

#include "platform/owned.h"
#include "platform/virtual/disk/disk.h"
#include "platform/virtual/power/sleep.h"
#include "publish/publisher.h"
#include "state/activity.h"
#include "tests/ctl.h"
#include "tests/users_pc.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

constexpr const wchar_t* kStateKey = LR"(HKLM\Software\Orbeq\Holv\State)";

// The id of a process that was killed may be that of another one by now.
TEST(StatusTest, AnotherProcessWithTheIdIsNotTheService)
{
    UsersPc user;
    user.StartService();
    std::wstring record = *user.pc.registry.GetString(kStateKey, L"Now");
    const std::wstring started = L"\"started\":\"20";
    const std::size_t year = record.find(started);
    ASSERT_NE(year, record.npos);
    record.replace(year, started.size(), L"\"started\":\"19");
    user.pc.registry.SetString(kStateKey, L"Now", record);
    EXPECT_NE(RunCtl(user.pc, "status").said.find("ended without a word"), std::string::npos);
    user.StopService();
}

TEST(PublishedStateTest, IsGoneWhenThePcStartsAgainAndLeavesTheSettingsTheirKey)
{
    UsersPc user;
    user.StartService();
    const RegistryValue now = *user.pc.registry.Get(kStateKey, L"Now");
    EXPECT_EQ(now.data.size(), (now.Text().size() + 1) * sizeof(wchar_t)) << "with its terminator";
    user.pc.RunFor(2min);  // what was installed is on the disk then
    user.pc.CutPower();
    user.pc.RunFor(1s);
    EXPECT_FALSE(user.pc.registry.HasKey(kStateKey));
    EXPECT_TRUE(user.pc.registry.HasKey(kUserKey)) << "its parent is volatile, too";
    user.pc.Boot();
    user.pc.RunFor(10s);
    EXPECT_TRUE(user.pc.registry.HasKey(kStateKey));
    user.StopService();
}

TEST(PublishedStateTest, WhatCannotBePublishedOrWrittenIsSaidOnceAndHoldsNothingUp)
{
    for (const char* function : {"RegCreateKeyExW", "RegSetValueExW"}) {
        UsersPc user;
        user.pc.faults.Set(function, {.error = ERROR_ACCESS_DENIED, .count = Faults::kAlways});
        user.pc.disk.space_left = 0;
        user.StartService();
        user.Enter("HOLV_DND");
        EXPECT_EQ(user.heard.Times("Unable to publish the state, GLE=5"), 1) << function;
        EXPECT_EQ(user.heard.Times("Unable to write the history, GLE=112"), 1);
        user.StopService();
    }
}

TEST(PublishedStateTest, NothingIsPublishedOrLeftOpenAfterItsEnd)
{
    StormOnPc({.seeds = 1}, [](Machine& pc, const Machine::Options&) {
        pc.RunUntilEnd(pc.Start([] {
            StartPublishing();
            EndPublishing();
            const Activity change(Activity::Kind::fact);
            return 0;
        }));
    });
}

TEST(WatchTest, TellsEachChangeAsItHappensAndThatTheServiceWasKilled)
{
    UsersPc user;
    user.StartService();
    const std::size_t before = user.pc.outputs.console().size();
    const auto said = [&] { return user.pc.outputs.console().substr(before); };
    Process& watch = StartCtl(user.pc, "watch 5");
    user.pc.RunFor(1s);
    EXPECT_NE(said().find("S0_NORMAL"), std::string::npos);
    EXPECT_EQ(said().find("HOLV_ACTIVE"), std::string::npos);
    user.view.Raise(enter_active);
    user.pc.Settle();
    EXPECT_NE(said().find("HOLV_ACTIVE"), std::string::npos) << "without the clock moving";
    const std::uint64_t calls = watch.calls();
    user.pc.RunFor(1h);
    EXPECT_LT(watch.calls() - calls, 100u) << "it polls";
    user.Kill();
    user.pc.Settle();
    EXPECT_NE(said().find("ended without a word"), std::string::npos) << said();
    user.StartService();
    user.pc.RunUntilEnd(watch);
    EXPECT_EQ(watch.exit_code(), 0);
    user.StopService();
}

}  // namespace
