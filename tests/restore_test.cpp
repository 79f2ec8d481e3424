// The restore journal, and two programs that restore from it at once. That the user gets everything
// back as it was, whenever and however the service ends, the scenarios tell.

#include <cstring>
#include <filesystem>
#include <set>

#include "platform/kernel.h"
#include "restore/journal_format.h"
#include "restore/restoring.h"
#include "restore/turn.h"
#include "settings/settings.h"
#include "tests/fresh_service.h"
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

// --- The journal itself ---

const JournalEntry kPlan{Thing::ActivePlan(),
                         ThingValue(GUID_TYPICAL_POWER_SAVINGS),
                         {ThingValue(GUID_MAX_POWER_SAVINGS)}};
const JournalEntry kBrightness{
    Thing::PlanValue(GUID_MAX_POWER_SAVINGS, GUID_DEVICE_POWER_POLICY_VIDEO_BRIGHTNESS, TRUE),
    ThingValue(DWORD{20}),
    {ThingValue(DWORD{60})}};

JournalEntry Muted(const std::wstring& endpoint)
{
    return {Thing::EndpointMute(endpoint), ThingValue(DWORD{0}), {ThingValue(DWORD{1})}};
}

// With the checksum, in FNV-1a, of what follows the header.
std::vector<BYTE> Summed(std::vector<BYTE> bytes)
{
    DWORD sum = 2166136261u;
    for (std::size_t i = 16; i < bytes.size(); ++i) sum = (sum ^ bytes[i]) * 16777619u;
    std::memcpy(bytes.data() + 12, &sum, sizeof(sum));
    return bytes;
}

// Bytes that are no journal, or one that the service could not have written.
std::vector<std::vector<BYTE>> DamagedJournals()
{
    JournalEntry too_bright = kBrightness;
    too_bright.was = ThingValue(DWORD{101});
    JournalEntry no_setting = kBrightness;
    no_setting.thing.setting = GUID_POWERBUTTON_ACTION;
    JournalEntry no_kind = kPlan;
    no_kind.thing.kind = static_cast<ThingKind>(9);
    const JournalEntry long_id = Muted(std::wstring(kMostIdLength + 1, L'x'));
    const JournalEntry was_away{Thing::DeviceMode(), ThingValue(DWORD{1}), {ThingValue(DWORD{2})}};
    std::vector<std::vector<BYTE>> damaged = {
        {},
        {1, 2, 3},
        WriteJournal({kPlan, kPlan}),
        WriteJournal({too_bright}),
        WriteJournal({no_setting}),
        WriteJournal({no_kind}),
        WriteJournal({long_id}),
        WriteJournal({Muted(L"")}),
        WriteJournal({was_away}),
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
    const std::vector<BYTE> good = WriteJournal({kPlan, kBrightness});
    EXPECT_EQ(Summed(good), good) << "an earlier version's could not be read";
    for (auto end = good.begin() + 16; end != good.end(); ++end) {
        EXPECT_FALSE(ReadJournal(Summed({good.begin(), end}))) << end - good.begin();
    }
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

// --- What it keeps ---

const ThingValue kOff(DWORD{0});
const ThingValue kOn(DWORD{1});

// A change of the brightness by the service; kUnread where it does not learn what it was.
constexpr DWORD kUnread = 999;
struct Change
{
    DWORD now, to;
    void (*instead)() = nullptr;
};

class JournalKeepsTest : public VirtualPcTest
{
protected:
    static void Make(const Change& change)
    {
        if (change.instead) return change.instead();
        const Thing& thing = kBrightness.thing;
        const auto now = change.now == kUnread ? std::nullopt : std::optional(change.now);
        NoteChange(thing, now ? std::optional(ThingValue(*now)) : std::nullopt,
                   ThingValue(change.to));
        NoteChanged(thing, ThingValue(change.to));
    }

    static std::string Kept()
    {
        std::string kept;
        for (const JournalEntry& entry : JournalEntries()) {
            kept += std::to_string(entry.was.number()) + ":";
            for (const ThingValue& to : entry.wrote) kept += " " + std::to_string(to.number());
        }
        return kept;
    }

    std::optional<std::vector<JournalEntry>> OnDisk() const
    {
        return ReadJournal(pc.registry.Get(kRestoreKey, kJournalValue)->data);
    }
};

TEST_F(JournalKeepsTest, WhatTheUserHadAndTheLatestThatTheServiceWrote)
{
    const Change all_restored{0, 0, [] { RestoreWhatIsTheUsers(nullptr); }};
    const Change left{0, 0, [] { RestoreValuesAfterLeave(); }};
    const std::pair<std::vector<Change>, const char*> cases[] = {
        {{{20, 20}}, ""},
        {{{20, 101}}, ""},  // what no plan can have
        {{{101, 60}}, ""},
        {{{20, 61}, {61, 62}, {62, 63}, {63, 64}, {64, 65}}, "20: 62 63 64 65"},
        {{{20, 60}, {60, 20}, {20, 61}}, "20: 60 61"},
        {{{20, 60}, {60, 20}, {30, 61}}, "30: 61"},
        {{{20, 60}, {60, 20}, {kUnread, 61}}, "20: 60 61"},
        {{{20, 60}, {30, 61}}, "30: 61"},
        {{{20, 60}, {30, 30}}, ""},
        {{{kUnread, 60}, {60, 61}, {61, 20}}, ""},
        {{{kUnread, 60}, {kUnread, 61}, {61, 20}}, ""},
        {{{kUnread, 60}, {30, 61}}, "30: 61"},
        {{{kUnread, 60}, {30, 61}, {61, 30}, {60, 62}}, "60: 62"},
        {{{kUnread, 60}, all_restored, {60, 20}}, "60: 20"},
        {{{kUnread, 60}, left, {60, 20}}, "60: 20"},
    };
    for (const auto& each : cases) {
        FreshService();
        pc.registry.DeleteKey(kRestoreKey);
        RunAsProcess([&] {
            for (const Change& change : each.first) Make(change);
            EXPECT_EQ(Kept(), each.second) << "case " << &each - cases;
        });
    }
}

TEST_F(JournalKeepsTest, WhatOneAtATimeRestores)
{
    RunAsProcess([] {
        const RestoreTurn turn(0);
        EXPECT_TRUE(turn.mine());
        EXPECT_FALSE(RestoreTurn(0).mine());
    });
}

TEST_F(JournalKeepsTest, AsMuchAsItCanReadAgain)
{
    const std::wstring longest(kMostIdLength, L'x');
    RunAsProcess([&] {
        for (const DWORD to : {61, 62, 63, 64}) Make({20, to});
        for (const std::wstring& id : {longest, longest + L'x'}) {
            NoteChange(Thing::EndpointMute(id), kOff, kOn);
        }
        for (std::size_t i = 0; i < kMostEntries; ++i) {
            NoteChange(Thing::EndpointMute(std::to_wstring(i)), kOff, kOn);
        }
        EXPECT_TRUE(JournalEntryOf(Thing::EndpointMute(longest)));
        EXPECT_EQ(JournalEntries().size(), kMostEntries);
        EXPECT_EQ(OnDisk(), JournalEntries());
    });
}

TEST_F(JournalKeepsTest, NothingThatWasPutBack)
{
    g_dwLoggingEnabled = kLogToDebugger;
    const Thing desk = Thing::EndpointMute(L"Desk");
    RunAsProcess([&] {
        for (int night = 0; night < 2; ++night) {
            NoteChange(desk, kOff, kOn);
            EXPECT_EQ(KeptMutes(), 1);
            if (night == 0) NoteChanged(desk, kOff);
            EXPECT_EQ(KeptMutes(), night);
        }
        Make({20, 60});
        const std::vector<JournalEntry> copied = JournalEntries();
        Make({60, 61});
        RemoveJournalEntries(copied);
        EXPECT_EQ(KeptMutes(), 0);
        EXPECT_EQ(Kept(), "20: 60 61") << "changed since it was copied";
        NoteChange(kPlan.thing, kPlan.was, kPlan.wrote[0]);
        EXPECT_TRUE(OnDisk()) << "with each thing once";
        RemoveJournalEntries(JournalEntries());
        pc.faults.Set("RegDeleteValueW", {.error = 5});
        SettleJournal();
        EXPECT_EQ(heard.Times("Unable to write the restore journal, GLE=5"), 1);
    });
}

TEST_F(JournalKeepsTest, WhatAnEarlierProcessHasLeftAndTheFirstUseReads)
{
    const std::pair<void (*)(), std::size_t> uses[] = {
        {[] {
             Make({20, 60});
         },
         2},
        {[] { NoteChanged(kPlan.thing, kPlan.was); }, 0},
        {[] { EXPECT_TRUE(JournalEntryOf(kPlan.thing)); }, 1},
    };
    for (const auto& each : uses) {
        FreshService();
        pc.registry.Set(kRestoreKey, kJournalValue, {REG_BINARY, WriteJournal({kPlan})});
        pc.faults.Set("RegGetValueW", {.count = 2});
        RunAsProcess([&] {
            each.first();
            EXPECT_EQ(JournalEntries().size(), each.second);
        });
    }
}

}  // namespace
