// What holvctl says of the service: by the state that it publishes, by its control interface, and
// by its history.

#include <map>
#include <nlohmann/json.hpp>

#include "platform/owned.h"
#include "platform/virtual/disk/disk.h"
#include "tests/ctl.h"
#include "tests/users_pc.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

constexpr const wchar_t* kStateKey = LR"(HKLM\Software\Orbeq\Holv\State)";

TEST(StatusTest, EachStateIsToldInASentenceAndWhatWouldChangeIt)
{
    const struct
    {
        std::string state;
        std::string why;
        std::string change;
    } cases[] = {
        {"S0_NORMAL", "The PC is in normal use: its user is there.",
         "When its user has been away for the plan's sleep time-out"},
        {"HOLV_ACTIVE", "The PC is in never-sleep mode: it is awake, and its user is not there.",
         "To let it sleep: holvctl set never-sleep off"},
        {"HOLV_IDLE",
         "The PC is kept awake in never-sleep mode, with little to do: its user is away.",
         "To let it sleep: holvctl set never-sleep off"},
        {"HOLV_DND", "The PC is kept awake, quietly: it is within the do-not-disturb hours.",
         "To let it sleep: holvctl set never-sleep off"},
        {"HOLV_S3", "The PC is going to sleep, asleep, or has just been woken.", ""},
    };
    for (const auto& [state, why, change] : cases) {
        UsersPc user;
        user.StartService();
        user.Enter(state);
        const CtlAnswer status = RunCtl(user.pc, "status");
        EXPECT_EQ(status.code, 0);
        EXPECT_NE(status.said.find(state + " since "), std::string::npos) << status.said;
        EXPECT_NE(status.said.find(why), std::string::npos) << status.said;
        const CtlAnswer chain = RunCtl(user.pc, "why");
        EXPECT_NE(chain.said.find(change), std::string::npos) << chain.said;
        user.StopService();
    }
}

TEST(StatusTest, AServiceThatIsNotThereIsToldFromOneThatHasEnded)
{
    UsersPc user;
    EXPECT_EQ(RunCtl(user.pc, "status").code, 4) << "installed, and not started yet";
    user.StartService();
    EXPECT_EQ(RunCtl(user.pc, "status").code, 0);
    user.Enter("HOLV_DND");
    user.Kill();
    const CtlAnswer killed = RunCtl(user.pc, "status");
    EXPECT_EQ(killed.code, 4);
    EXPECT_NE(killed.said.find("ended without a word"), std::string::npos) << killed.said;
    user.StartService();
    EXPECT_EQ(RunCtl(user.pc, "status").code, 0);
    user.StopService();
    const CtlAnswer stopped = RunCtl(user.pc, "status");
    EXPECT_EQ(stopped.code, 4);
    EXPECT_NE(stopped.said.find("has stopped"), std::string::npos) << stopped.said;
    EXPECT_NE(RunCtl(user.pc, "status --json").said.find(R"("service":"stopped")"),
              std::string::npos);
    user.pc.RunUntilEnd(*user.pc.StartInstalled(user.image.path, L"HOLVService.exe -UnregServer"));
    EXPECT_TRUE(user.pc.registry.HasKey(kStateKey));
    const CtlAnswer removed = RunCtl(user.pc, "status");
    EXPECT_EQ(removed.code, 5);
    EXPECT_NE(removed.said.find("is not installed"), std::string::npos) << removed.said;
}

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
    EXPECT_TRUE(user.pc.registry.HasKey(kStateKey));
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
    UsersPc user;
    user.pc.faults.Set("RegCreateKeyExW", {.error = ERROR_ACCESS_DENIED, .count = Faults::kAlways});
    user.pc.disk.space_left = 0;
    user.StartService();
    user.Enter("HOLV_DND");
    EXPECT_EQ(user.State(), "HOLV_DND");
    EXPECT_EQ(user.heard.Times("Unable to publish the state, GLE=5"), 1);
    EXPECT_EQ(user.heard.Times("Unable to write the history, GLE=112"), 1);
    user.StopService();
}

TEST(FeatureCommandTest, FeaturesAreReadAndSwitchedByNameAndEachErrorHasItsCode)
{
    UsersPc user;
    user.StartService();
    EXPECT_EQ(RunCtl(user.pc, "get never-sleep").said, "1\n");
    EXPECT_EQ(RunCtl(user.pc, "set never-sleep off").said, "never-sleep is off.\n");
    EXPECT_EQ(RunCtl(user.pc, "get 0").said, "0\n");
    EXPECT_EQ(RunCtl(user.pc, "version").said, "The service is version 1,1,70,537.\n");
    const CtlAnswer off = RunCtl(user.pc, "status");
    EXPECT_NE(off.said.find("Never-sleep mode is switched off"), std::string::npos) << off.said;
    EXPECT_EQ(RunCtl(user.pc, "interval 21:30 05:45").said, "do not disturb from 21:30 to 05:45\n");
    EXPECT_EQ(RunCtl(user.pc, "interval").said, "do not disturb from 21:30 to 05:45\n");
    EXPECT_EQ(RunCtl(user.pc, "event state-change").said,
              "heard event code 1\nThe event code is state-change.\n");
    EXPECT_EQ(RunCtl(user.pc, "event 2 refuse").said,
              "heard event code 2 and refused it\nThe event code is update-available.\n");
    const std::map<std::string, int> codes = {
        {"get nonsense", 7},
        {"set nonsense on", 7},
        {"set has-battery on", 9},
        {"set mute-audio maybe", 8},
        {"interval 24:00 06:00", 8},
        {"interval 22:00", 2},
        {"event 3", 7},
        {"", 2},
        {"status --xml", 2},
        {"report --days 0", 2},
    };
    for (const auto& [command, code] : codes) {
        EXPECT_EQ(RunCtl(user.pc, command).code, code) << command;
    }
    user.StopService();
}

TEST(RefreshTest, PutsBackWhatAClientHasChangedSinceThePolicySetIt)
{
    UsersPc user;
    const auto policy = [&](const wchar_t* name, DWORD value) {
        user.pc.registry.SetDword(kUserKey, name, value);
    };
    EXPECT_EQ(RunCtl(user.pc, "refresh").code, 4) << "it does not run";
    EXPECT_NE(user.State(), "S0_NORMAL") << "and is not started";
    policy(L"MuteAudio", 1);
    policy(L"DoNotDisturbStart", 1300);
    user.StartService();
    EXPECT_EQ(RunCtl(user.pc, "refresh").said, "All is as it is stored.\n");
    RunCtl(user.pc, "set mute-audio off");
    RunCtl(user.pc, "set never-sleep off");
    RunCtl(user.pc, "interval 12:00 12:30");
    EXPECT_EQ(user.pc.registry.GetDword(kUserKey, L"MuteAudio"), 0u);
    EXPECT_EQ(RunCtl(user.pc, "refresh").said, "All is as it is stored.\n")
        << "what a client has changed counts until the policy is written again";

    // The refresh of the policy writes its values, and those alone.
    policy(L"MuteAudio", 1);
    policy(L"DoNotDisturbStart", 1300);
    const CtlAnswer refreshed = RunCtl(user.pc, "refresh");
    EXPECT_EQ(refreshed.code, 0);
    EXPECT_EQ(refreshed.said,
              "mute-audio is 1 again.\nthe do-not-disturb hours are as stored again.\n");
    EXPECT_EQ(RunCtl(user.pc, "get mute-audio").said, "1\n");
    EXPECT_EQ(RunCtl(user.pc, "get never-sleep").said, "0\n") << "no policy says otherwise";
    EXPECT_EQ(RunCtl(user.pc, "interval").said, "do not disturb from 21:40 to 12:30\n");
    policy(L"EnableNeverSleep", 1);
    policy(L"DoNotDisturbEnd", 5000);
    RunCtl(user.pc, "refresh");
    EXPECT_EQ(RunCtl(user.pc, "get never-sleep").said, "1\n");
    EXPECT_EQ(user.pc.registry.GetDword(kUserKey, L"DoNotDisturbEnd"), 1440u);
    user.StopService();
    EXPECT_EQ(RunCtl(user.pc, "refresh").code, 4);
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
