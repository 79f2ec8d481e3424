// The history, and what the report has of it where files, disks and logs are not as they should be.
// week_test.cpp has the report of a week, and report_storm_test.cpp holds its hours against what
// the PC has really done.

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>

#include "pc/person.h"
#include "platform/virtual/eventlog/event_log.h"
#include "platform/virtual/power/sleep.h"
#include "tests/ctl.h"
#include "tests/schema.h"
#include "tests/users_pc.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

using nlohmann::json;

class HistoryTest : public ::testing::Test
{
protected:
    // The file of a day in March.
    static std::wstring FileOf(int day)
    {
        return LR"(C:\ProgramData\Orbeq\Holv\History\03-0)" + std::to_wstring(day) + L".jsonl";
    }
    std::string Bytes(int day = 2) { return user.pc.disk.Read(FileOf(day)).value_or(""); }
    std::vector<json> Records()
    {
        std::vector<json> records;
        std::istringstream lines(Bytes());
        for (std::string line; std::getline(lines, line);) records.push_back(json::parse(line));
        return records;
    }
    json Report()
    {
        const CtlAnswer answer = RunCtl(user.pc, "report --days 366 --json");
        EXPECT_EQ(answer.code, 0);
        json report = json::parse(answer.said);
        EXPECT_EQ(Schema("report.schema.json").Wrong(report), "");
        return report;
    }

    UsersPc user;
};

TEST_F(HistoryTest, ATornLineIsPassedOverAndAnotherYearsFileBegunAnew)
{
    user.pc.disk.Write(FileOf(2), "{\"utc\":\"2025-03-02T10:00:00.000Z\",\"event\":\"start\"}\n");
    user.StartService();
    user.StopService();
    std::string bytes = Bytes();
    EXPECT_EQ(bytes.find("2025"), bytes.npos);
    EXPECT_GE(Report()["records"], 3);
    bytes.resize(bytes.size() - 20);
    user.pc.disk.Write(FileOf(2), bytes);
    user.pc.faults.Set("ReadFile", {.object = FileOf(2)});
    user.StartService();
    user.StopService();
    const json report = Report();
    EXPECT_EQ(report["torn_lines"], 1);
    EXPECT_TRUE(Bytes().starts_with(bytes)) << "the first run's lines stay";
    EXPECT_EQ(report["records"], std::ranges::count(Bytes(), '\n') - 1) << "all but the torn one";
    EXPECT_NE(report["events"].dump().find("was killed before this start"), std::string::npos)
        << "the torn line was the stop's";
}

// As where a process could not read how far the one before it had counted.
TEST_F(HistoryTest, LinesWhoseNumbersStartAgainAreToldInTheirOrder)
{
    for (int run = 0; run < 2; ++run) {
        user.StartService();
        user.pc.RunFor(10min);
        user.StopService();
        user.pc.RunFor(10min);
    }
    const json before = Report();
    std::string bytes;
    int number = 0;
    for (json& record : Records()) {
        if (record["event"] == "start") number = 0;
        record["number"] = ++number;
        // The time stands first, as the service writes it.
        bytes += "{\"utc\":" + record["utc"].dump() + "," + record.dump().substr(1) + "\n";
    }
    user.pc.disk.Write(FileOf(2), bytes);
    const json after = Report();
    EXPECT_EQ(after["days"], before["days"]);
    EXPECT_EQ(after["events"], before["events"]);
}

TEST_F(HistoryTest, ADayTakesNoMoreThanItsBytesAndTheNextBeginsAnew)
{
    constexpr std::size_t kMost = 1 << 20;
    std::string lines;
    while (lines.size() < kMost - 2000) lines += "{\"utc\":\"2026-03-02T09:00:00.000Z\"}\n";
    user.pc.disk.Write(FileOf(2), lines);
    user.StartService();
    user.Enter("HOLV_ACTIVE");
    user.Enter("HOLV_DND");
    EXPECT_GT(Bytes().size(), lines.size()) << "there was room for a line";
    EXPECT_LE(Bytes().size(), kMost);
    EXPECT_EQ(Bytes().back(), '\n');
    user.pc.SetClock(*ParseCalendar("2026-03-03 23:59"));
    user.Enter("HOLV_ACTIVE");
    EXPECT_GT(Bytes(3).size(), 100u);
    // A line that its own day's file cannot take goes to no other day's.
    for (const auto& [day, function] :
         {std::pair{3, "SHGetKnownFolderPath"}, std::pair{4, "CreateDirectoryW"}}) {
        const std::string before = Bytes(day);
        user.pc.faults.Set(function, {.count = Faults::kAlways});
        user.pc.SetClock(user.pc.clock() + 24h);
        user.pc.RunFor(1s);
        EXPECT_EQ(Bytes(day), before) << function;
        user.pc.faults.ClearAll();
        user.Enter("HOLV_DND");
        EXPECT_NE(Bytes(day + 1), "");
    }
    user.StopService();
}

TEST_F(HistoryTest, AFullDiskEndsInAWholeLine)
{
    user.StartService();
    user.pc.disk.space_left = 100;
    user.Enter("HOLV_ACTIVE");
    user.pc.disk.space_left.reset();
    user.Enter("HOLV_DND");
    user.StopService();
    const json report = Report();
    EXPECT_EQ(report["torn_lines"], 1);
    EXPECT_GT(report["days"][0]["ms"]["HOLV_DND"], 1000);
}

// One thread publishes for all: while it waits for the disk, the state may change more than once.
TEST_F(HistoryTest, ASlowDiskHidesNoChangeOfState)
{
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
    Lines told;
    int number = 0;
    json since;
    for (const json& record : Records()) {
        EXPECT_GT(record["number"], number) << record;
        number = record["number"];
        if (record["since_tick"] == since) continue;
        since = record["since_tick"];
        told.push_back(record.value("state", "") + " " + record.value("reason", "") + " " +
                       record.value("event", ""));
    }
    EXPECT_LINES(told, Lines{"HOLV_INIT starting start", "HOLV_ACTIVE away_mode change",
                             "HOLV_IDLE processor_idle change", "HOLV_DND hours change",
                             "HOLV_INIT starting change"});
}

// The idle time is looked at every half hour, and the power requests are listed each time.
TEST_F(HistoryTest, ALookThatFindsNothingNewWritesNoLine)
{
    user.pc.SetClock(*ParseCalendar("2026-03-02 09:00"));
    user.StartService();
    const auto work = [&](int hours) {
        for (int i = 0; i < 3 * hours; ++i) {
            user.pc.user.Works();
            user.pc.RunFor(20min);
        }
        return Records().size();
    };
    const auto lines = work(1);
    const std::uint64_t looks = user.pc.faults.CallsOf("CallNtPowerInformation");
    EXPECT_EQ(work(4), lines);
    EXPECT_GT(user.pc.faults.CallsOf("CallNtPowerInformation"), looks + 4);
    user.StopService();
}

// --- The report ---

using ReportTest = HistoryTest;

TEST_F(ReportTest, TellsAWakeThatIsAnnouncedAsTheUsers)
{
    user.StartService();
    user.Enter("HOLV_S3");
    user.pc.announcer.PowerEvent(PBT_APMRESUMESUSPEND);
    user.pc.RunFor(1min);
    user.StopService();
    EXPECT_NE(RunCtl(user.pc, "report").said.find("the user woke the PC"), std::string::npos);
}

// Of a year, by a month of a person's days.
TEST_F(ReportTest, AYearsPageHasLessThanAMegabyte)
{
    user.StartService();
    constexpr int kDays = 30;
    Person(user.pc, 7).Live(kDays);
    EXPECT_EQ(RunCtl(user.pc, R"(report --days 366 --html C:\days.html)").code, 0);
    const std::string html = user.pc.disk.Read(LR"(C:\days.html)").value_or("");
    EXPECT_GT(html.size(), 100u * kDays);
    EXPECT_LT(html.size(), 1'000'000u * kDays / 365);
    user.StopService();
}

TEST_F(ReportTest, TellsTheErrorsThatTheServiceHasReportedAndNobodyElses)
{
    constexpr const wchar_t* kSource = L"Orbeq( R ) HOLV";
    const std::wstring large = L"HOLV - F   " + std::wstring(31'000, L'x') + L"\r\n";
    const auto add = [&](const wchar_t* source, WORD type, DWORD id,
                         std::vector<std::wstring> strings) {
        user.pc.event_log.Add({{}, source, type, 1, id, std::move(strings), {}});
    };
    add(L"Another", EVENTLOG_ERROR_TYPE, 2000, {L"no error of ours"});
    add(kSource, EVENTLOG_ERROR_TYPE, 2001, {L"another id"});
    add(kSource, EVENTLOG_ERROR_TYPE, 2000, {});
    user.pc.faults.Set("PowerCreateRequest", {.error = 1450, .count = 1});
    user.StartService();
    user.pc.SetClock(*ParseCalendar("2026-03-03 12:00"));
    for (int i = 0; i < 2; ++i) add(kSource, EVENTLOG_ERROR_TYPE, 2000, {large});
    add(kSource, EVENTLOG_WARNING_TYPE, 2000, {L"HOLV - F   no"});
    user.StopService();
    const json report = Report();
    Lines errors;
    for (const json& event : report["events"]) {
        if (event["kind"] != "error") continue;
        errors.push_back(event.value("local", "") + " " + event.value("text", ""));
    }
    ASSERT_EQ(errors.size(), 2u);
    EXPECT_TRUE(errors[0].starts_with("2026-03-02 12:00:0")) << errors[0];
    EXPECT_TRUE(
        errors[0].ends_with(" the service reported an error: Can't create power request, "
                            "GLE=1450 (CNeverSleepAwayMode::Initialize)"))
        << errors[0];
    EXPECT_TRUE(errors[1].starts_with("2026-03-03 12:00:0")) << errors[1].substr(0, 50);
    EXPECT_TRUE(errors[1].ends_with("xxx (F), 2 times on that day"))
        << "of a record larger than the buffer";
}

}  // namespace
