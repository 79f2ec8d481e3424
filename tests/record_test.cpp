// The words in which the service tells its state to programs: what they read must stay as it is.

#include "publish/record.h"

#include <gtest/gtest.h>

#include "json/utc.h"
#include "platform/virtual/base/text.h"
#include "reconciler/rules.h"

using namespace virtual_pc;

namespace {

constexpr GUID kToldPlan{
    0x381b4222, 0xf694, 0x41f0, {0x96, 0x85, 0xff, 0x5b, 0xb2, 0x60, 0xdf, 0x2e}};

RecordHead Head()
{
    RecordHead head;
    head.utc = *ParseUtc(L"2026-03-02T21:00:10.500Z");
    head.minutes_ahead = 60;
    head.tick = 50'000;
    head.boot = L"2026-03-02T08:00:00.000Z";
    head.number = 7;
    head.process = ProcessRecord(1234, *ParseUtc(L"2026-03-02T08:00:20.000Z"));
    return head;
}

// No two neighbours are alike, so that an exchange of them shows.
Snapshot Told()
{
    Snapshot now{};
    now.state = HOLV_DND;
    now.since = 49'000;
    now.reason = Reason::hours;
    now.feature_on = true;
    now.away = true;
    now.on_ac = true;
    now.battery_allowed = true;
    now.requests = Requests::held;
    now.hours_enabled = now.in_hours = true;
    now.hours_start = 1320;
    now.hours_end = 360;
    now.kept_mutes = 2;
    now.plans = {kToldPlan, GUID{}};
    return now;
}

const std::string kHead = R"("utc":"2026-03-02T21:00:10.500Z","version":1,"minutes_ahead":60,)"
                          R"("boot":"2026-03-02T08:00:00.000Z","number":7,"tick":50000,)"
                          R"("process":{"id":1234,"started":"2026-03-02T08:00:20.000Z"},)";
const std::string kFacts =
    R"("feature":true,"user":{"present":false,"away":true,"suspended":false},)"
    R"("power":{"mains":true,"battery_low":false,"battery_allowed":true},"requests":"held",)"
    R"("hours":{"on":true,"start":1320,"end":360,"inside":true,"sleep":false},)"
    R"("plan":{"user":"381b4222-f694-41f0-9685-ff5bb260df2e","active":""},"mutes":2)";
const std::string kState =
    R"("state":"HOLV_DND","since":"2026-03-02T21:00:09.500Z","reason":"hours",)";

JsonObject Common(const Snapshot& now) { return CommonRecord(Head(), now, FactsOf(now)); }

TEST(RecordTest, ALineOfTheHistoryHasTheseWords)
{
    Snapshot now = Told();
    now.holders = std::make_shared<const std::vector<RequestHolder>>(
        std::vector<RequestHolder>{{L"SYSTEM", L"PROCESS", L"copy.exe", L"not told"}});
    EXPECT_EQ(ToUtf8(HistoryRecord(Common(now), now, RecordEvent::change, 81)),
              "{" + kHead + kState + kFacts +
                  R"(,"event":"change","since_tick":49000,"charge":81,"holders":)"
                  R"([{"request":"SYSTEM","kind":"PROCESS","name":"copy.exe"}]})");
    EXPECT_EQ(
        ToUtf8(HistoryRecord(Common(Told()), Told(), RecordEvent::stop, std::nullopt)),
        "{" + kHead + kState + kFacts + R"(,"event":"stop","since_tick":49000,"holders":[]})");
}

TEST(RecordTest, ACorrectionThatIsPublishedHasTheseWords)
{
    Snapshot corrected = Told();
    corrected.reason = Reason::processor_idle;
    corrected.correction = {&Rules()[1], 40'500};
    EXPECT_EQ(ToUtf8(PublishedRecord(Common(corrected), Head(), corrected, {}, false)),
              "{" + kHead +
                  R"("state":"HOLV_DND","since":"2026-03-02T21:00:09.500Z",)"
                  R"("reason":"processor_idle",)" +
                  kFacts +
                  R"(,"correction":{"rule":"user_there","utc":"2026-03-02T21:00:01.000Z",)"
                  R"("wrong":"The user is back but normal use has not begun",)"
                  R"("remedy":"signalling EVENT_ENTER_S0"},"running":false,"next":{}})");
}

}  // namespace
