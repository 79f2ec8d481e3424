// The restore journal, and two programs that restore from it at once. That the user gets everything
// back as it was, whenever and however the service ends, the scenarios tell.

#include <array>
#include <filesystem>
#include <set>

#include "platform/kernel.h"
#include "restore/journal_format.h"
#include "tests/users_pc.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

// The ends in other states are told by scenarios.
TEST(RestoreTest, AnEndAtTheWordThatThePcSleepsLeavesNothingBehind)
{
    const std::pair<const char*, std::function<void(UsersPc&)>> ends[] = {
        {"a stop", [](UsersPc& user) { user.StopService(); }},
        {"a shutdown", [](UsersPc& user) { user.pc.ShutDown(); }},
        {"a kill",
         [](UsersPc& user) {
             user.Kill();
             user.StartService();
             user.StopService();
         }},
    };
    for (const auto& [what, end] : ends) {
        UsersPc user;
        user.StartService();
        user.Enter("HOLV_S3");
        end(user);
        EXPECT_EQ(user.Differences(), "") << "after " << what;
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
