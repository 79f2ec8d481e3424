// What the report has from the event log: errors, and the days before the history.

#include <nlohmann/json.hpp>

#include "platform/virtual/eventlog/event_log.h"
#include "platform/virtual/power/sleep.h"
#include "tests/ctl.h"
#include "tests/schema.h"
#include "tests/users_pc.h"

using namespace std::chrono_literals;
using namespace virtual_pc;
using nlohmann::json;

namespace {

constexpr const wchar_t* kSource = L"Orbeq( R ) HOLV";

json ReportedBy(Machine& pc)
{
    const CtlAnswer answer = RunCtl(pc, "report --json");
    EXPECT_EQ(answer.code, 0);
    json report = json::parse(answer.said);
    EXPECT_EQ(Schema("report.schema.json").Wrong(report), "");
    return report;
}

// The texts of the events of a kind, a line each, with their local times.
std::string Told(const json& report, std::string_view kind)
{
    std::string told;
    for (const json& event : report["events"]) {
        if (event["kind"] != kind) continue;
        told += event["local"].get<std::string>() + " " + event["text"].get<std::string>() + "\n";
    }
    return told;
}

void EmptyHistory(Machine& pc, const wchar_t* day)
{
    const std::wstring file = LR"(C:\ProgramData\Orbeq\Holv\History\)" + std::wstring(day);
    ASSERT_GT(pc.disk.Read(file).value_or("").size(), 100u);
    pc.disk.Write(file, "");
}

// Of a day, in whole seconds, without what took no time.
std::map<std::string, std::int64_t> SecondsOf(const json& day)
{
    std::map<std::string, std::int64_t> seconds;
    for (const auto& [state, ms] : day["ms"].items()) {
        if (ms > 0) seconds[state] = (ms.get<std::int64_t>() + 500) / 1000;
    }
    return seconds;
}

TEST(ReportLogTest, TellsTheErrorsThatTheServiceHasReportedAndNobodyElses)
{
    UsersPc user;
    user.pc.event_log.Add(
        {{}, L"Another", EVENTLOG_ERROR_TYPE, 1, 2000, {L"no error of ours"}, {}});
    user.pc.event_log.Add({{}, kSource, EVENTLOG_ERROR_TYPE, 1, 2001, {L"another id"}, {}});
    user.pc.event_log.Add({{}, kSource, EVENTLOG_ERROR_TYPE, 1, 2000, {}, {}});
    user.pc.faults.Set("PowerCreateRequest", {.error = 1450, .count = 1});
    user.StartService();
    user.pc.SetClock(*ParseCalendar("2026-03-03 12:00"));
    const std::wstring large(31'000, L'x');
    const std::wstring text = L"HOLV - F   " + large + L"\r\n";
    for (int i = 0; i < 2; ++i) {
        user.pc.event_log.Add({{}, kSource, EVENTLOG_ERROR_TYPE, 1, 2000, {text}, {}});
    }
    user.pc.event_log.Add({{}, kSource, EVENTLOG_WARNING_TYPE, 1, 2000, {L"HOLV - F   no"}, {}});
    user.StopService();
    const json report = ReportedBy(user.pc);
    const std::string errors = Told(report, "error");
    EXPECT_TRUE(errors.starts_with("2026-03-02 12:00:0")) << errors;
    EXPECT_NE(errors.find(" the service reported an error: Can't create power request, GLE=1450 "
                          "(CNeverSleepAwayMode::Initialize)\n2026-03-03 12:00:0"),
              std::string::npos)
        << errors.substr(0, 500);
    EXPECT_NE(errors.find("xxx (F), 2 times on that day\n"), std::string::npos)
        << "of a record larger than the buffer";
    EXPECT_EQ(std::ranges::count(errors, '\n'), 2) << errors.substr(0, 500);
    EXPECT_EQ(report["event_log"]["error"], 0);
    EXPECT_EQ(report["days"][0]["source"], "history");
    EXPECT_EQ(RunCtl(user.pc, "report").said.find("event log"), std::string::npos);
}

// An afternoon with a sleep and a kill, of which the history is lost.
void LivePast(UsersPc& user)
{
    const auto at = [&](const char* time) { user.pc.SetClock(*ParseCalendar(time)); };
    at("2026-03-02 12:00");
    user.StartService();
    at("2026-03-02 13:00");
    user.Enter("HOLV_DND");
    user.pc.announcer.PowerEvent(PBT_APMSUSPEND);
    user.pc.RunFor(10min);
    user.pc.announcer.PowerEvent(PBT_APMRESUMESUSPEND);
    user.pc.RunFor(10min);
    user.Kill();
    at("2026-03-02 15:00");
    user.StartService();
    at("2026-03-02 18:00");
    user.StopService();
    EmptyHistory(user.pc, L"03-02.jsonl");
    at("2026-03-03 06:00");
}

TEST(ReportLogTest, TellsTheTimeBeforeTheHistoryFromTheLogAlone)
{
    UsersPc user;
    LivePast(user);
    const json alone = ReportedBy(user.pc);
    EXPECT_EQ(alone["history_begin"], json());
    ASSERT_EQ(alone["days"].size(), 1u);
    EXPECT_EQ(alone["days"][0]["source"], "event_log");

    user.StartService();
    user.StopService();
    const json report = ReportedBy(user.pc);
    ASSERT_EQ(report["days"].size(), 2u);
    EXPECT_EQ(report["days"][0]["source"], "event_log");
    EXPECT_EQ(report["days"][1]["source"], "history");
    EXPECT_EQ(report["history_begin"]["local"], "2026-03-03 06:00:00");
    auto seconds = SecondsOf(report["days"][0]);
    EXPECT_NEAR(seconds["HOLV_DND"], 2, 2);
    EXPECT_NEAR(seconds["HOLV_S3"], 600, 3);
    EXPECT_NEAR(seconds["unknown"], 2 * 3600 - 604, 3) << "its last word was the return";
    EXPECT_NEAR(seconds["S0_NORMAL"], 3600 + 3 * 3600, 3);
    EXPECT_NEAR(seconds["stopped"], 6 * 3600, 3);
    EXPECT_NEAR(SecondsOf(report["days"][1])["stopped"], 6 * 3600, 3);
    EXPECT_NE(Told(report, "sleep").find("2026-03-02 13:00:0"), std::string::npos);
    EXPECT_NE(Told(report, "wake").find("2026-03-02 13:10:0"), std::string::npos);
    EXPECT_NE(Told(report, "gap").find("2026-03-02 15:00:00"), std::string::npos);
}

TEST(ReportLogTest, SaysWhichTimeIsToldFromTheLogAlone)
{
    UsersPc user;
    LivePast(user);
    EXPECT_NE(RunCtl(user.pc, "report").said.find("There is no history"), std::string::npos);
    user.StartService();
    user.StopService();
    const std::string_view note =
        "The history begins at 2026-03-03 06:00:00: what was before is from the event log alone.";
    const std::string said = RunCtl(user.pc, "report").said;
    EXPECT_NE(said.find(note), std::string::npos) << said;
    EXPECT_NE(said.find("  (from the event log)\n2026-03-03  "), std::string::npos) << said;
    EXPECT_EQ(RunCtl(user.pc, R"(report --html C:\r.html)").code, 0);
    const std::string page = user.pc.disk.Read(LR"(C:\r.html)").value_or("");
    EXPECT_NE(page.find("<p>" + std::string(note)), std::string::npos) << page;
    EXPECT_NE(page.find("2026-03-02, from the event log</td>"), std::string::npos) << page;
    user.pc.SetClock(*ParseCalendar("2026-03-04 06:00"));
    user.StartService();
    user.StopService();
    EXPECT_EQ(RunCtl(user.pc, "report --days 1").said.find("event log"), std::string::npos)
        << "of that day all is from the history";
}

TEST(ReportLogTest, LivesWithALogThatCannotBeReadAndSaysSoInOneLine)
{
    UsersPc user;
    user.StartService();
    user.StopService();
    for (const auto& [function, error] :
         {std::pair("OpenEventLogW", 5u), std::pair("ReadEventLogW", 1500u)}) {
        user.pc.faults.Set(function, {.error = error, .count = Faults::kAlways});
        const CtlAnswer answer = RunCtl(user.pc, "report");
        EXPECT_EQ(answer.code, 0);
        EXPECT_NE(answer.said.find("2026-03-02  "), std::string::npos) << answer.said;
        const std::string note = "The event log cannot be read (error " + std::to_string(error);
        EXPECT_NE(answer.said.find("\n" + note), std::string::npos) << answer.said;
        EXPECT_EQ(ReportedBy(user.pc)["event_log"]["error"], error);
        EXPECT_EQ(RunCtl(user.pc, R"(report --html C:\r.html)").code, 0);
        EXPECT_NE(user.pc.disk.Read(LR"(C:\r.html)").value_or("").find("<p>" + note),
                  std::string::npos);
        user.pc.faults.Clear(function);
    }
    EmptyHistory(user.pc, L"03-02.jsonl");
    user.pc.faults.Set("OpenEventLogW", {.error = 5});
    EXPECT_TRUE(RunCtl(user.pc, "report").said.starts_with("The history is empty."));
}

}  // namespace
