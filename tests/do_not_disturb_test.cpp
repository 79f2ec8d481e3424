// The do-not-disturb hours: their arithmetic against a reference that steps through the day minute
// by minute, the timers that follow from it, and a clock that is set.

#include <array>

#include "state/do_not_disturb.h"
#include "tests/running_service.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

using S = CNeverSleepState;

constexpr DWORD kDay = 24 * 60;

// A day on which the minutes from `start` on are marked, until `end` comes, over midnight if need
// be. A start or end of 24:00 is midnight.
std::array<bool, kDay> Marked(DWORD start, DWORD end)
{
    std::array<bool, kDay> day{};
    for (DWORD minute = start % kDay; minute != end % kDay; minute = (minute + 1) % kDay) {
        day[minute] = true;
    }
    return day;
}

TEST(DoNotDisturbArithmeticTest, EveryMinuteOfTheDayAgreesWithSteppingToTheNextBoundary)
{
    const DWORD times[] = {0,   1,   59,  60,   180,  359,  360,  361,  480,
                           719, 720, 900, 1020, 1200, 1319, 1320, 1439, 1440};
    for (const DWORD start : times) {
        for (const DWORD end : times) {
            if (start % kDay == end % kDay) continue;
            const DoNotDisturbHours hours{start, end};
            const std::array<bool, kDay> day = Marked(start, end);
            for (DWORD now = 0; now < kDay; ++now) {
                DWORD steps = 0;
                while (day[(now + steps) % kDay] == day[now]) ++steps;
                ASSERT_EQ(hours.Contain(now), day[now]) << start << " to " << end << " at " << now;
                ASSERT_EQ(hours.MinutesToBoundary(now, day[now]), steps)
                    << start << " to " << end << " at " << now;
            }
        }
    }
}

// The control interface may set a time that no clock shows. It is never reached, and the wait is
// not 0, which would make the timer fire without end.
TEST(DoNotDisturbArithmeticTest, TimesThatNoClockShowsAreNeverReached)
{
    for (const DWORD start : {0u, 600u, 1440u, 1441u, 2000u, 5000u}) {
        for (const DWORD end : {0u, 600u, 1440u, 1441u, 2000u, 5000u}) {
            const DoNotDisturbHours hours{start, end};
            for (DWORD now = 0; now < kDay; ++now) {
                const bool inside = hours.Contain(now);
                if (start == end) {
                    ASSERT_FALSE(inside);
                    continue;
                }
                const bool reached = start < kDay && now >= start;
                const bool over = end < kDay && now >= end;
                ASSERT_EQ(inside, start < end ? reached && !over : reached || !over)
                    << start << " to " << end << " at " << now;
                const DWORD wait = hours.MinutesToBoundary(now, inside);
                if (!inside && now == start) continue;
                ASSERT_GE(wait, 1u) << start << " to " << end << " at " << now;
                ASSERT_LE(wait, 5000u + kDay) << start << " to " << end << " at " << now;
            }
        }
    }
}

class DoNotDisturbTest : public VirtualPcTest
{
protected:
    DoNotDisturbTest()
    {
        g_dwLoggingEnabled = 0;
        S::m_eSystemState = S0_NORMAL;
    }

    void Hours(DWORD start, DWORD end)
    {
        g_dwDoNotDisturbStart = start;
        g_dwDoNotDisturbEnd = end;
    }

    void SetClock(const char* time)
    {
        pc.SetClock(*ParseCalendar(std::string("2026-03-02 ") + time));
    }

    void WithEvents(const std::function<void()>& body)
    {
        RunAsProcess([&] {
            const GlobalEvents events;
            body();
        });
    }

    // Which of the timers fires first, and after how many minutes.
    std::pair<DWORD, std::int64_t> FirstTimer() const
    {
        const Instant before = pc.now();
        const DWORD slot = WaitForMultipleObjects(kGlobalEventCount, g_hGlobalEvents, FALSE,
                                                  3 * 24 * 60 * 60 * 1000u);
        return {slot, std::chrono::floor<std::chrono::minutes>(pc.now() - before).count()};
    }
};

using Timer = std::pair<DWORD, std::int64_t>;

TEST_F(DoNotDisturbTest, TheTimerOfTheNextBoundaryIsArmedAndNoneWithoutHours)
{
    const struct
    {
        DWORD start, end;
        const char* now;
        bool inside;
        Timer timer;
    } cases[] = {
        {1320, 360, "23:00", true, {TIMER_DND_END, 420}},
        {1320, 360, "05:00:59", true, {TIMER_DND_END, 60}},
        {1320, 360, "12:00", false, {TIMER_DND_START, 600}},
        {480, 1020, "07:00", false, {TIMER_DND_START, 60}},
        {480, 1020, "18:00", false, {TIMER_DND_START, 840}},
        {480, 1020, "17:00", false, {TIMER_DND_START, 900}},
        {480, 1020, "08:00", true, {TIMER_DND_END, 540}},
        {600, 600, "10:00", false, {WAIT_TIMEOUT, 4320}},
    };
    WithEvents([&] {
        for (const auto& c : cases) {
            SCOPED_TRACE(c.now);
            Hours(c.start, c.end);
            SetClock(c.now);
            ArmGlobalTimer(TIMER_DND_START, -36'000'000'000 * 50, 0, FALSE);
            EXPECT_EQ(S::CheckIfDoNotDisturbTime() != FALSE, c.inside);
            S::CreateDoNotDisturbTimer();
            EXPECT_EQ(FirstTimer(), c.timer);
            CancelGlobalTimer(TIMER_DND_START);
            g_bEnableDoNotDisturb = 0;
            EXPECT_FALSE(S::CheckIfDoNotDisturbTime());
            g_bEnableDoNotDisturb = 1;
        }
    });
}

TEST_F(DoNotDisturbTest, ASwitchedOffIntervalHasNoTimersAndATimerThatCannotBeArmedIsTold)
{
    WithEvents([&] {
        Hours(1320, 360);
        for (const auto look : {S::RefreshDoNotDisturbState, S::OnSystemTimeChange}) {
            SetClock("23:00");
            S::RefreshDoNotDisturbState();
            EXPECT_TRUE(S::m_bSeenDndStart);
            ArmGlobalTimer(TIMER_DND_START, -1, 0, FALSE);
            Sleep(8 * 3'600'000);  // both have fired, and no wait has taken them
            g_bEnableDoNotDisturb = 0;
            look();
            EXPECT_FALSE(S::m_bSeenDndStart);
            EXPECT_EQ(FirstTimer().first, DWORD{WAIT_TIMEOUT});
            g_bEnableDoNotDisturb = 1;
        }
        g_dwLoggingLevel = 3;
        g_dwLoggingEnabled = kLogToDebugger;
        for (const auto& [now, line] :
             {std::pair{"23:00", "DoNotDisturb end."}, std::pair{"12:00", "DoNotDisturb start."}}) {
            SetClock(now);
            pc.faults.Set("SetWaitableTimer", {});
            S::CreateDoNotDisturbTimer();
            EXPECT_TRUE(heard.TakeHas(line));
        }
    });
}

// Only a change of the clock across a boundary moves the timer, and the new time decides where to.
TEST_F(DoNotDisturbTest, AClockThatIsSetMovesTheBoundaryOnlyWhenItIsCrossed)
{
    const struct
    {
        const char* from;
        const char* to;
        bool seen;
        Timer timer;  // counted from the change
    } cases[] = {
        {"21:00", "23:00", true, {TIMER_DND_END, 420}},
        {"23:00", "21:00", false, {TIMER_DND_START, 60}},
        {"23:50", "00:10", true, {TIMER_DND_END, 370}},    // the same side: as it was armed
        {"21:00", "20:00", false, {TIMER_DND_START, 60}},  // as well
        {"05:00", "06:00", false, {TIMER_DND_START, 960}},
    };
    WithEvents([&] {
        Hours(1320, 360);
        for (const auto& c : cases) {
            SCOPED_TRACE(c.to);
            CancelGlobalTimer(TIMER_DND_START);
            CancelGlobalTimer(TIMER_DND_END);
            SetClock(c.from);
            S::RefreshDoNotDisturbState();
            SetClock(c.to);
            const BOOL seen = S::m_bSeenDndStart;
            S::OnSystemTimeChange();
            EXPECT_EQ(S::m_bSeenDndStart != FALSE, c.seen);
            if (seen != S::m_bSeenDndStart) {
                CancelGlobalTimer(seen ? TIMER_DND_END : TIMER_DND_START);
            }
            EXPECT_EQ(FirstTimer(), c.timer);
        }
    });
}

}  // namespace
