// The history, and the report that holvctl makes of it. report_storm_test.cpp holds its hours
// against what the PC has really done.

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>

#include "pc/person.h"
#include "platform/virtual/power/battery.h"
#include "platform/virtual/power/sleep.h"
#include "tests/ctl.h"
#include "tests/schema.h"
#include "tests/users_pc.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

constexpr std::wstring_view kHistory = LR"(C:\ProgramData\Orbeq\Holv\History\)";

nlohmann::json ReportOf(Machine& pc)
{
    const CtlAnswer answer = RunCtl(pc, "report --days 366 --json");
    EXPECT_EQ(answer.code, 0);
    nlohmann::json report = nlohmann::json::parse(answer.said);
    EXPECT_EQ(Schema("report.schema.json").Wrong(report), "");
    return report;
}

TEST(HistoryTest, ATornLineIsPassedOverAndAnotherYearsFileBegunAnew)
{
    UsersPc user;
    const std::wstring file = std::wstring(kHistory) + L"03-02.jsonl";
    user.pc.disk.Write(file, "{\"utc\":\"2025-03-02T10:00:00.000Z\",\"event\":\"start\"}\n");
    user.StartService();
    user.StopService();
    std::string bytes = user.pc.disk.Read(file).value_or("");
    EXPECT_EQ(bytes.find("2025"), std::string::npos);
    const auto records = ReportOf(user.pc)["records"].get<int>();
    EXPECT_GE(records, 3);
    bytes.resize(bytes.size() - 20);
    user.pc.disk.Write(file, bytes);
    user.pc.faults.Set("ReadFile", {.object = file});
    user.StartService();
    user.StopService();
    const auto report = ReportOf(user.pc);
    EXPECT_EQ(report["torn_lines"], 1);
    const std::string both = user.pc.disk.Read(file).value_or("");
    EXPECT_TRUE(both.starts_with(bytes)) << "the first run's lines stay";
    EXPECT_EQ(report["records"], std::ranges::count(both, '\n') - 1) << "all but the torn one";
    EXPECT_NE(report["events"].dump().find("was killed before this start"), std::string::npos)
        << "the torn line was the stop's";
}

// As where a process could not read how far the one before it had counted.
TEST(HistoryTest, LinesWhoseNumbersStartAgainAreToldInTheirOrder)
{
    UsersPc user;
    for (int run = 0; run < 2; ++run) {
        user.StartService();
        user.pc.RunFor(10min);
        user.StopService();
        user.pc.RunFor(10min);
    }
    const auto before = ReportOf(user.pc);
    const std::wstring file = std::wstring(kHistory) + L"03-02.jsonl";
    std::istringstream lines(user.pc.disk.Read(file).value_or(""));
    std::string bytes;
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        nlohmann::json record = nlohmann::json::parse(line);
        if (record["event"] == "start") number = 0;
        record["number"] = ++number;
        // The time stands first, as the service writes it.
        bytes += "{\"utc\":" + record["utc"].dump() + "," + record.dump().substr(1) + "\n";
    }
    user.pc.disk.Write(file, bytes);
    const auto after = ReportOf(user.pc);
    EXPECT_EQ(after["days"], before["days"]);
    EXPECT_EQ(after["events"], before["events"]);
}

TEST(HistoryTest, ADayTakesNoMoreThanItsBytesAndTheNextBeginsAnew)
{
    constexpr std::size_t kMost = 1 << 20;
    UsersPc user;
    const auto file = [](int day) {
        return std::wstring(kHistory) + L"03-0" + std::to_wstring(day) + L".jsonl";
    };
    std::string lines;
    while (lines.size() < kMost - 2000) lines += "{\"utc\":\"2026-03-02T09:00:00.000Z\"}\n";
    user.pc.disk.Write(file(2), lines);
    user.StartService();
    user.Enter("HOLV_ACTIVE");
    user.Enter("HOLV_DND");
    const std::string full = user.pc.disk.Read(file(2)).value_or("");
    EXPECT_GT(full.size(), lines.size()) << "there was room for a line";
    EXPECT_LE(full.size(), kMost);
    EXPECT_EQ(full.back(), '\n');
    user.pc.SetClock(*ParseCalendar("2026-03-03 23:59"));
    user.Enter("HOLV_ACTIVE");
    EXPECT_GT(user.pc.disk.Read(file(3)).value_or("").size(), 100u);
    // A line that its own day's file cannot take goes to no other day's.
    for (const auto& [day, function] :
         {std::pair{3, "SHGetKnownFolderPath"}, std::pair{4, "CreateDirectoryW"}}) {
        const auto before = user.pc.disk.Read(file(day));
        user.pc.faults.Set(function, {.count = Faults::kAlways});
        user.pc.SetClock(user.pc.clock() + 24h);
        user.pc.RunFor(1s);
        EXPECT_EQ(user.pc.disk.Read(file(day)), before) << function;
        user.pc.faults.ClearAll();
        user.Enter("HOLV_DND");
        EXPECT_TRUE(user.pc.disk.Read(file(day + 1)));
    }
    user.StopService();
}

TEST(HistoryTest, AFullDiskEndsInAWholeLine)
{
    UsersPc user;
    user.StartService();
    user.pc.disk.space_left = 100;
    user.Enter("HOLV_ACTIVE");
    user.pc.disk.space_left.reset();
    user.Enter("HOLV_DND");
    user.StopService();
    const auto report = ReportOf(user.pc);
    EXPECT_EQ(report["torn_lines"], 1);
    EXPECT_GT(report["days"][0]["ms"]["HOLV_DND"].get<std::int64_t>(), 1000);
}

// One thread publishes for all: while it waits for the disk, the state may change more than once.
TEST(HistoryTest, ASlowDiskHidesNoChangeOfState)
{
    UsersPc user;
    user.StartService();
    user.pc.slowness.Set("WriteFile", {.typical = 20s});
    user.pc.user.Leaves();
    user.pc.sleep.Ask(L"test");
    user.pc.RunFor(2s);
    for (const int slot : {enter_idle, enter_dnd}) {
        user.view.Raise(slot);
        user.pc.RunFor(1s);
    }
    user.pc.slowness.ClearAll();
    user.pc.RunFor(32s);
    EXPECT_TRUE(RunCtl(user.pc, "status").said.starts_with("HOLV_DND"));
    user.StopService();
    std::istringstream lines(
        user.pc.disk.Read(std::wstring(kHistory) + L"03-02.jsonl").value_or(""));
    Lines told;
    int number = 0;
    std::int64_t since = -1;
    for (std::string line; std::getline(lines, line);) {
        const nlohmann::json record = nlohmann::json::parse(line);
        EXPECT_GT(record["number"], number) << line;
        number = record["number"];
        if (record["since_tick"] == since) continue;
        since = record["since_tick"];
        told.push_back(record["state"].get<std::string>() + " " +
                       record["reason"].get<std::string>() + " " +
                       record["event"].get<std::string>());
    }
    EXPECT_LINES(told, Lines{"HOLV_INIT starting start", "HOLV_ACTIVE away_mode change",
                             "HOLV_IDLE processor_idle change", "HOLV_DND hours change",
                             "HOLV_INIT starting change"});
}

// The idle time is looked at every half hour, and the power requests are listed each time.
TEST(HistoryTest, ALookThatFindsNothingNewWritesNoLine)
{
    UsersPc user;
    user.pc.SetClock(*ParseCalendar("2026-03-02 09:00"));
    user.StartService();
    const auto work = [&](int hours) {
        for (int i = 0; i < 3 * hours; ++i) {
            user.pc.user.Works();
            user.pc.RunFor(20min);
        }
        const std::string bytes =
            user.pc.disk.Read(std::wstring(kHistory) + L"03-02.jsonl").value_or("");
        return std::ranges::count(bytes, '\n');
    };
    const auto lines = work(1);
    const std::uint64_t looks = user.pc.faults.CallsOf("CallNtPowerInformation");
    EXPECT_EQ(work(4), lines);
    EXPECT_GT(user.pc.faults.CallsOf("CallNtPowerInformation"), looks + 4);
    user.StopService();
}

TEST(ReportTest, AStartWithAClockFarAheadAddsNoDays)
{
    UsersPc user;
    user.StartService();
    user.pc.RunFor(Unwritten::kLazyWrite);
    user.pc.CutPower();
    user.pc.SetClock(*ParseCalendar("2099-07-01 12:00"));
    user.pc.Boot();
    user.pc.RunFor(1min);
    const std::string said = RunCtl(user.pc, "report").said;
    EXPECT_NE(said.find("started with a clock that was set forward"), std::string::npos) << said;
    EXPECT_LT(std::ranges::count(said, '\n'), 12) << said;
    user.StopService();
}

// Sleeps, wakes and holders, as a person reads them.
TEST(ReportTest, TellsSleepsWakesHoldersAndPlansAndDrawsThem)
{
    UsersPc user;
    user.StartService();
    user.pc.SetClock(user.pc.clock() - 1h);
    const auto film = user.pc.power.NewRequest(L"C:\\Film.exe", L"");
    user.pc.power.SetRequest(*film, PowerRequestDisplayRequired);
    user.Enter("HOLV_DND");
    user.pc.announcer.PowerEvent(PBT_APMSUSPEND);
    user.pc.RunFor(1s);
    user.pc.announcer.PowerEvent(PBT_APMRESUMESUSPEND);
    user.pc.RunFor(1min);
    user.StopService();
    const std::string said = RunCtl(user.pc, "report").said;
    for (const char* sentence :
         {"the clock was set back by 3600 s", "the active plan is Power saver",
          "the active plan is Balanced", "the PC went to sleep", "the user woke the PC",
          "Held awake by Film.exe"}) {
        EXPECT_NE(said.find(sentence), std::string::npos) << sentence << " is not in\n" << said;
    }
    EXPECT_EQ(said.find("by HOLVService.exe"), std::string::npos) << "its own request:\n" << said;
    EXPECT_EQ(RunCtl(user.pc, R"(report --html C:\day.html)").code, 0);
    const std::string html = user.pc.disk.Read(LR"(C:\day.html)").value_or("");
    EXPECT_NE(html.find("<svg class=\"t\""), std::string::npos);
    EXPECT_NE(html.find("2026-03-02"), std::string::npos);
    EXPECT_EQ(html.find("http"), std::string::npos) << "it needs another file";
    EXPECT_EQ(RunCtl(user.pc, R"(report --html C:\nowhere\day.html)").code, 10);
}

// Of a year, by a month of a person's days.
TEST(ReportTest, AYearsPageHasLessThanAMegabyte)
{
    UsersPc user;
    user.StartService();
    constexpr int kDays = 30;
    Person(user.pc, 7).Live(kDays);
    EXPECT_EQ(RunCtl(user.pc, R"(report --days 366 --html C:\days.html)").code, 0);
    const std::string html = user.pc.disk.Read(LR"(C:\days.html)").value_or("");
    EXPECT_GT(html.size(), 100u * kDays);
    EXPECT_LT(html.size(), 1'000'000u * kDays / 365);
    user.StopService();
}

// From the charges that the service has read, and at the end from the present one.
TEST(ReportTest, TellsDayByDayWhatTheBatteryHasGiven)
{
    UsersPc user;
    user.pc.SetClock(*ParseCalendar("2026-03-02 20:00"));
    user.pc.battery.DrainAt(6);
    user.pc.battery.ChargeAt(30);
    user.pc.power.RunOnBattery(90);
    user.StartService();
    user.pc.RunFor(2h);
    EXPECT_NEAR(ReportOf(user.pc)["days"][0]["charge_used"].get<int>(), 12, 1) << "so far";
    user.pc.RunFor(6h);
    user.pc.power.RunOnMains();
    user.pc.RunFor(1h);
    user.pc.power.RunOnBattery(72);
    user.pc.RunFor(2h);
    user.StopService();
    const nlohmann::json days = ReportOf(user.pc)["days"];
    ASSERT_EQ(days.size(), 2u);
    constexpr double kHour = 3'600'000;
    EXPECT_NEAR(days[0]["on_battery_ms"].get<double>() / kHour, 4, 0.01);
    EXPECT_NEAR(days[1]["on_battery_ms"].get<double>() / kHour, 6, 0.01);
    EXPECT_NEAR(days[0]["charge_used"].get<int>(), 24, 1);
    EXPECT_EQ(days[0]["charge_used"].get<int>() + days[1]["charge_used"].get<int>(), 48 + 12);
    EXPECT_NEAR(days[0]["lowest_charge"].get<int>(), 66, 1);
    EXPECT_EQ(days[1]["lowest_charge"], 42);
    const std::string said = RunCtl(user.pc, "report").said;
    EXPECT_NE(said.find("(on battery 6:00, "), std::string::npos) << said;
    EXPECT_NE(said.find(" % of the charge used, down to 42 %)"), std::string::npos) << said;
    EXPECT_EQ(RunCtl(user.pc, R"(report --html C:\day.html)").code, 0);
    const std::string html = user.pc.disk.Read(LR"(C:\day.html)").value_or("");
    EXPECT_NE(html.find("<th>charge used</th><th>lowest charge</th>"), std::string::npos);
    EXPECT_NE(html.find("<td>42 %</td></tr>"), std::string::npos);
}

TEST(ReportTest, TellsNoChargeWhereThereIsNoBattery)
{
    UsersPc user;
    user.StartService();
    user.pc.RunFor(1h);
    user.StopService();
    EXPECT_EQ(ReportOf(user.pc)["days"][0]["lowest_charge"], nlohmann::json());
    EXPECT_EQ(RunCtl(user.pc, "report").said.find("charge"), std::string::npos);
    EXPECT_EQ(RunCtl(user.pc, R"(report --html C:\day.html)").code, 0);
    EXPECT_EQ(user.pc.disk.Read(LR"(C:\day.html)").value_or("").find("charge"), std::string::npos);
}

// So that a printed page cuts no row, and shows the hours of what is on it.
TEST(ReportTest, DrawsEachMonthByItselfAndEachDayOnce)
{
    UsersPc user;
    user.pc.SetClock(*ParseCalendar("2026-02-27 12:00"));
    user.StartService();
    user.pc.RunFor(48h);
    user.StopService();
    EXPECT_EQ(RunCtl(user.pc, R"(report --html C:\days.html)").code, 0);
    const std::string html = user.pc.disk.Read(LR"(C:\days.html)").value_or("");
    std::vector<std::string> drawn;
    for (std::size_t at = 0; (at = html.find("<svg class=\"t\"", at)) != html.npos;) {
        const std::size_t end = html.find("</svg>", at);
        std::string days;
        while ((at = html.find("<text x=\"0\"", at)) < end) {
            at = html.find('>', at) + 1;
            days += html.substr(at, std::string_view("2026-02-27").size()) + " ";
        }
        drawn.push_back(days);
        at = end;
    }
    EXPECT_EQ(drawn, (std::vector<std::string>{"2026-02-27 2026-02-28 ", "2026-03-01 "}));
}

}  // namespace
