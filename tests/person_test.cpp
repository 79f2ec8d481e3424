// A year with a person: at every quiet moment the PC is as its state says, the do-not-disturb
// hours begin and end when they should, and at the end everything is given back.

#include "pc/person.h"
#include "log/log.h"
#include "platform/virtual/power/battery.h"
#include "tests/never_sleep_pc_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

struct Habits
{
    const char* name;
    DWORD dnd_to_s3;
    DWORD on_battery;
};

std::ostream& operator<<(std::ostream& out, const Habits& habits) { return out << habits.name; }

class PersonTest : public ::testing::TestWithParam<Habits>
{
};

TEST_P(PersonTest, TheYearGoesByWithThePcAsItShouldBe)
{
    constexpr std::uint64_t kSeed = 7;
    constexpr int kDays = kRunFree ? 21 : 365;
    NeverSleepPc home({.free = kRunFree});
    home.Set(L"LoggingLevel", 4);
    home.Set(L"LoggingEnabled", kLogToDebugger);
    home.Set(L"DndToS3", GetParam().dnd_to_s3);
    home.Set(L"EnableHOLVOnDc", GetParam().on_battery);
    home.pc.SetClock(*ParseCalendar("2026-03-02 00:00"));
    home.pc.battery.DrainAt(12);
    home.pc.battery.ChargeAt(60);
    // The hours begin and end within the minute that the clock shows, unless the PC has slept over
    // that and the user has just woken it.
    int boundaries = 0;
    Instant woken_at{-1h};
    home.pc.journal.Listen([&](const Effect& effect) {
        if (effect.kind == "sleep" && effect.Text("why") == L"the user") woken_at = effect.at;
        if (effect.kind != "debug" || effect.at - woken_at < 1s) return;
        const std::wstring text = effect.Text("text");
        const bool start = text.find(L"Entering HOLV Registry Do Not") != std::wstring::npos;
        const bool end = text.find(L"Leaving HOLV Registry Do Not") != std::wstring::npos;
        if (!start && !end) return;
        ++boundaries;
        const SYSTEMTIME now = FromCalendar(effect.clock);
        EXPECT_EQ(now.wHour, start ? 22 : 6) << FormatCalendar(effect.clock);
        EXPECT_EQ(now.wMinute, 0) << FormatCalendar(effect.clock);
    });
    home.StartService();
    Person person(home.pc, kSeed);
    int moments = 0;
    person.Live(kDays, [&](Person::Moment moment) {
        ++moments;
        if (moment == Person::Moment::there) {
            home.ExpectNormalUse("somebody has sat down");
        } else {
            home.ExpectConsistent("nobody has been there for hours");
        }
    });
    EXPECT_GE(moments, 2 * kDays - 2);
    EXPECT_GE(boundaries, kDays - 1);
    home.pc.sleep.WakeByUser();
    home.pc.RunFor(5s);
    home.StopService();
}

INSTANTIATE_TEST_SUITE_P(All, PersonTest,
                         ::testing::Values(Habits{"AwayAllNight", 0, 1},
                                           Habits{"AsleepAllNight", 1, 1},
                                           Habits{"NotOnBattery", 0, 0}),
                         [](const auto& habits) { return habits.param.name; });

}  // namespace
