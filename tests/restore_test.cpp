// The user gets everything back as it was, whenever and however the service ends: what it finds
// after the next start, or at once after a stop, is what there was before the first.

#include <array>
#include <filesystem>
#include <set>

#include "api/agent_api.h"
#include "pc/agent_client.h"
#include "platform/kernel.h"
#include "restore/journal_format.h"
#include "tests/users_pc.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

class RestoreTest : public ::testing::TestWithParam<const char*>
{
};

TEST_P(RestoreTest, AfterAStopEverythingIsAsItWas)
{
    UsersPc user;
    user.StartService();
    user.Enter(GetParam());
    user.StopService();
    EXPECT_EQ(user.Differences(), "");
    EXPECT_FALSE(user.HasJournal());
}

TEST_P(RestoreTest, AfterAShutdownAndAStartEverythingIsAsItWas)
{
    UsersPc user;
    user.StartService();
    user.Enter(GetParam());
    user.pc.ShutDown();
    EXPECT_EQ(user.Differences(), "");
    user.StartService();
    EXPECT_EQ(user.State(), "S0_NORMAL");
    user.StopService();
    EXPECT_EQ(user.Differences(), "");
}

TEST_P(RestoreTest, TheStartAfterAKillRestoresEverything)
{
    UsersPc user;
    user.StartService();
    user.Enter(GetParam());
    user.Kill();
    EXPECT_TRUE(user.HasJournal());
    user.StartService();
    const Observations now = Find(user.pc);
    for (const char* name : {"active plan", "mute Desk", "mute Headphones", "mute Monitor", "mode",
                             "plan Power saver sleep-timeout", "plan Power saver brightness",
                             "plan Power saver processor-min"}) {
        EXPECT_EQ(now.at(name), user.before.at(name)) << name;
    }
    user.StopService();
    EXPECT_EQ(user.Differences(), "");
    EXPECT_FALSE(user.HasJournal());
}

INSTANTIATE_TEST_SUITE_P(InEachState, RestoreTest,
                         ::testing::Values("S0_NORMAL", "HOLV_ACTIVE", "HOLV_IDLE", "HOLV_DND",
                                           "HOLV_S3"),
                         [](const auto& state) { return std::string(state.param); });

TEST(RestoreChoiceTest, WhatTheUserHasChangedSinceStands)
{
    UsersPc user;
    user.StartService();
    user.Enter("HOLV_DND");
    user.Kill();
    const GUID& saver = GUID_MAX_POWER_SAVINGS;
    user.pc.power.Activate(GUID_MIN_POWER_SAVINGS);
    user.pc.power.Write(saver, GUID_DEVICE_POWER_POLICY_VIDEO_BRIGHTNESS, PowerSource::dc, 33);
    user.pc.audio.Find(L"Headphones")->SetMute(false);
    user.StartService();
    EXPECT_EQ(user.pc.power.active().name, L"High performance");
    EXPECT_EQ(user.pc.power.Read(saver, GUID_DEVICE_POWER_POLICY_VIDEO_BRIGHTNESS, PowerSource::dc),
              33u);
    EXPECT_FALSE(user.pc.audio.Find(L"Headphones")->Muted());
    EXPECT_TRUE(user.heard.Has("2 were changed since"));
    user.StopService();
    user.before["active plan"] = "High performance";
    user.before["plan Power saver brightness"] = "60 33";
    EXPECT_EQ(user.Differences(), "");
}

// A leave that leaves something behind: it skips a processor pair whose minimum was 0.
TEST(RestoreChoiceTest, WhatALeaveHasNotPutBackIsRestoredAfterIt)
{
    UsersPc user;
    user.StartService();
    user.Enter("HOLV_DND");
    user.view.Raise(enter_s0);
    user.pc.RunFor(1s);
    EXPECT_EQ(user.State(), "S0_NORMAL");
    Observations now = Find(user.pc);
    EXPECT_EQ(now["plan Power saver processor-min"], "5 0");
    EXPECT_EQ(now["plan Power saver processor-max"], "100 100");
    user.StopService();
    EXPECT_EQ(user.Differences(), "");
}

// An endpoint that is unplugged when everything else is restored.
TEST(RestoreChoiceTest, AnEndpointThatIsAwayIsRestoredWhenItIsBack)
{
    UsersPc user;
    user.StartService();
    user.Enter("HOLV_DND");
    Endpoint& headphones = *user.pc.audio.Find(L"Headphones");
    headphones.SetState(DEVICE_STATE_UNPLUGGED);
    user.StopService();
    EXPECT_EQ(user.Differences(), "mute Headphones was unmuted, is muted\n");
    user.StartService();
    headphones.SetState(DEVICE_STATE_ACTIVE);
    user.pc.RunFor(2s);
    user.Enter("HOLV_ACTIVE");
    user.view.Raise(enter_s0);
    user.pc.RunFor(1s);
    EXPECT_EQ(Find(user.pc)["mute Headphones"], "unmuted");
    user.StopService();
    EXPECT_EQ(user.Differences(), "");
    EXPECT_FALSE(user.HasJournal());
}

TEST(RestoreChoiceTest, AFeatureThatIsSwitchedOffLeavesNothingBehind)
{
    UsersPc user;
    user.StartService();
    user.Enter("HOLV_DND");
    AgentClient client(user.pc, L"UI");
    EXPECT_EQ(client.Call(L"SetNeverSleepParam", {E_HOLV_STATE, 0}).Words(), L"ok");
    EXPECT_EQ(user.Differences(), "");
    EXPECT_EQ(client.Call(L"SetNeverSleepParam", {E_HOLV_STATE, 1}).Words(), L"ok");
    user.pc.RunFor(1s);
    EXPECT_EQ(user.pc.power.active().name, L"Balanced") << "it takes the right plan for the user's";
    client.Quit();
    user.StopService();
    EXPECT_EQ(user.Differences(), "");
}

TEST(RestoreChoiceTest, APlanThatIsChosenWhileNeverSleepModeLastsStandsAfterTheReturn)
{
    for (const char* state : {"HOLV_ACTIVE", "HOLV_DND"}) {
        UsersPc user;
        user.StartService();
        user.Enter(state);
        user.pc.power.Activate(GUID_MIN_POWER_SAVINGS);
        user.pc.RunFor(1s);
        user.view.Raise(enter_s0);
        user.pc.RunFor(1s);
        EXPECT_EQ(user.pc.power.active().name, L"High performance");
        user.StopService();
        user.before["active plan"] = "High performance";
        EXPECT_EQ(user.Differences(), "");
    }
}

// The service is started while holvctl restores, or holvctl while the service does.
TEST(RestoreTurnTest, TwoThatWouldRestoreAtOnceDoNoHarm)
{
    std::set<int> exits;
    Storm({.seeds = 40, .free = kRunFree ? 20u : 0u}, [&](const Machine::Options& life) {
        UsersPc user(life);
        user.StartService();
        user.Enter("HOLV_DND");
        user.Kill();
        const auto host_path = std::filesystem::path(HOLV_IMAGE).replace_filename("libholvctl.so");
        user.pc.Install({.host_path = host_path, .path = kCtlPath});
        if (life.seed % 4 == 0) user.pc.services.Start(kServiceName);
        const Process& ctl = *user.pc.StartInstalled(kCtlPath, L"holvctl.exe restore");
        if (life.seed % 4 == 1) user.pc.Settle();
        if (life.seed % 4 != 0) user.pc.services.Start(kServiceName);
        user.pc.RunFor(10s);
        EXPECT_FALSE(ctl.running());
        exits.insert(ctl.exit_code());
        user.StopService();
        EXPECT_EQ(user.Differences(), "");
    });
    const std::set<int> possible = {0, 3};
    EXPECT_TRUE(std::ranges::includes(possible, exits)) << testing::PrintToString(exits);
    EXPECT_TRUE(kRunFree || exits == possible) << "the moments differ";
}

// One program's image is unloaded while another's is loaded, perhaps in its place.
TEST(RestoreTurnTest, ProgramsStartAndEndAtOnce)
{
    Machine pc({.free = kRunFree});
    const auto host_path = std::filesystem::path(HOLV_IMAGE).replace_filename("libholvctl.so");
    pc.Install({.host_path = host_path, .path = kCtlPath});
    std::array<const Process*, 30> started{};
    for (const Process*& program : started) {
        program = pc.StartInstalled(kCtlPath, L"holvctl.exe help");
    }
    pc.RunFor(1s);
    for (const Process* program : started) {
        EXPECT_FALSE(program->running());
        EXPECT_EQ(program->exit_code(), 2) << "the usage";
    }
}

// --- The journal itself ---

const JournalEntry kPlan{Thing::ActivePlan(),
                         ThingValue(GUID_TYPICAL_POWER_SAVINGS),
                         {ThingValue(GUID_MAX_POWER_SAVINGS)}};
const JournalEntry kBrightness{
    Thing::PlanValue(GUID_MAX_POWER_SAVINGS, GUID_DEVICE_POWER_POLICY_VIDEO_BRIGHTNESS, TRUE),
    ThingValue(DWORD{20}),
    {ThingValue(DWORD{60})}};

// Bytes that are no journal, or one that the service could not have written.
std::vector<std::vector<BYTE>> DamagedJournals()
{
    JournalEntry too_bright = kBrightness;
    too_bright.was = ThingValue(DWORD{101});
    JournalEntry no_setting = kBrightness;
    no_setting.thing.setting = GUID_POWERBUTTON_ACTION;
    JournalEntry no_kind = kPlan;
    no_kind.thing.kind = static_cast<ThingKind>(9);
    const JournalEntry long_id{Thing::EndpointMute(std::wstring(kMostIdLength + 1, L'x')),
                               ThingValue(DWORD{0}),
                               {ThingValue(DWORD{1})}};
    std::vector<std::vector<BYTE>> damaged = {
        {},
        {1, 2, 3},
        WriteJournal({kPlan, kPlan}),
        WriteJournal({too_bright}),
        WriteJournal({no_setting}),
        WriteJournal({no_kind}),
        WriteJournal({long_id}),
        WriteJournal({{kPlan.thing, kPlan.was, {}}}),
        WriteJournal(std::vector<JournalEntry>(kMostEntries + 1, kPlan)),
        std::vector<BYTE>(kMostJournalBytes + 1)};
    const std::vector<BYTE> good = WriteJournal({kPlan, kBrightness});
    for (std::size_t i = 0; i < good.size(); ++i) {
        damaged.push_back(good);
        damaged.back()[i] ^= 0x10;
        damaged.emplace_back(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(i));
    }
    return damaged;
}

TEST(JournalTest, ADamagedOneIsPassedOverWithOneLineAndNothingIsMadeWorse)
{
    ASSERT_EQ(ReadJournal(WriteJournal({kPlan, kBrightness})),
              (std::vector<JournalEntry>{kPlan, kBrightness}));
    const std::vector<std::vector<BYTE>> damaged = DamagedJournals();
    for (std::size_t i = 0; i < damaged.size(); ++i) {
        EXPECT_FALSE(ReadJournal(damaged[i])) << i;
        if (i % 20 != 0) continue;
        UsersPc user;
        user.pc.registry.Set(kRestoreKey, kJournalValue, {REG_BINARY, damaged[i]});
        user.StartService();
        EXPECT_EQ(user.heard.Times("estore journal"), 1) << i;
        user.Enter("HOLV_DND");
        user.StopService();
        EXPECT_EQ(user.Differences(), "") << i;
    }
}

// Whatever can be found changed after a kill must be in the journal by then, and on the disk.
TEST(JournalTest, AChangeIsWrittenDownBeforeItIsMade)
{
    UsersPc user;
    std::map<std::string, int> seen;
    const auto written_down = [&](const Thing& thing, const ThingValue& value) {
        const auto bytes = user.pc.registry.Get(kRestoreKey, kJournalValue);
        const auto entries = bytes ? ReadJournal(bytes->data) : std::nullopt;
        return entries && std::ranges::any_of(*entries, [&](const JournalEntry& entry) {
                   return entry.thing == thing && (entry.Wrote(value) || entry.was == value);
               });
    };
    user.pc.journal.Listen([&](const Effect& effect) {
        if (effect.kind == "plan activated" && effect.Text("plan") != effect.Text("before")) {
            ++seen["plan"];
            EXPECT_TRUE(written_down(Thing::ActivePlan(), ThingValue(user.pc.power.active().guid)));
        }
        if (effect.kind == "mute" && effect.Number("muted")) {
            ++seen["mute"];
            const std::wstring id = user.pc.audio.Find(effect.Text("endpoint"))->id();
            EXPECT_TRUE(written_down(Thing::EndpointMute(id), ThingValue(DWORD{1})));
        }
        if (effect.kind == "device request" && effect.Number("mode") != 0) {
            ++seen["mode"];
            EXPECT_TRUE(written_down(Thing::DeviceMode(),
                                     ThingValue(static_cast<DWORD>(effect.Number("mode")))));
        }
    });
    user.StartService();
    const std::uint64_t flushed = user.pc.faults.CallsOf("RegFlushKey");
    user.Enter("HOLV_DND");
    const std::uint64_t flushed_in_dnd = user.pc.faults.CallsOf("RegFlushKey");
    EXPECT_GE(flushed_in_dnd, flushed + 5);
    user.view.Raise(enter_s0);
    user.pc.RunFor(1s);
    EXPECT_EQ(user.pc.faults.CallsOf("RegFlushKey"), flushed_in_dnd + 1)
        << "the return itself waits for no disk; behind it the plans are flushed";
    for (const char* what : {"plan", "mute", "mode"}) EXPECT_GE(seen[what], 2) << what;
    user.StopService();
}

TEST(JournalTest, OneThatCannotBeWrittenHoldsNothingUpAndSaysSoOnce)
{
    UsersPc user;
    user.pc.faults.Set("RegSetValueExW", {.error = 5, .count = Faults::kAlways});
    user.StartService();
    user.Enter("HOLV_DND");
    EXPECT_EQ(user.pc.power.active().name, L"Power saver");
    EXPECT_EQ(user.heard.Times("Unable to write the restore journal, GLE=5"), 1);
    user.StopService();
    EXPECT_EQ(user.Differences(), "") << "by what the process knows";
}

}  // namespace
