// What differs between the versions of Windows: what is announced, which time asleep counts, how
// power requests are listed, and which version a program is told of.

#include "platform/command.h"
#include "platform/kernel.h"
#include "platform/owned.h"
#include "platform/virtual/announcer/announcer.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/power/sleep.h"
#include "tests/virtual_pc_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

class VersionsTest : public VirtualPcTest
{
protected:
    // The headings of the listing, as a program reads them.
    static std::wstring Sections()
    {
        const OwnedCommandOutput output(_wpopen(L"powercfg -requests", L"rt"));
        std::wstring sections;
        wchar_t line[200];
        while (std::fgetws(line, 200, output.Get())) {
            const std::wstring_view text(line);
            if (text.ends_with(L":\n")) sections += text.substr(0, text.size() - 1);
        }
        return sections;
    }
};

TEST_F(VersionsTest, AProgramIsToldOfNoLaterVersionThanItsManifestNames)
{
    pc.os_version = kWindows10;
    RunAsProcess([] {
        OSVERSIONINFOW information{};
        information.dwOSVersionInfoSize = sizeof(information);
        EXPECT_TRUE(GetVersionExW(&information));
        EXPECT_EQ(OsVersion(information.dwMajorVersion, information.dwMinorVersion,
                            information.dwBuildNumber),
                  kWindows8);
    });
}

TEST_F(VersionsTest, TheUsersPresenceIsAnnouncedFromWindows8On)
{
    struct Ears final : Announcer::Listener
    {
        bool Hear(const Announcement& said, const std::function<void()>&) override
        {
            presence += said.setting && IsEqualGUID(*said.setting, GUID_GLOBAL_USER_PRESENCE);
            return false;
        }
        int presence = 0;
    };
    for (const DWORD version : {kWindows7, kWindows8, kWindows81, kWindows10}) {
        pc.os_version = version;
        Ears ears;
        pc.announcer.Add(ears);
        pc.user.Leaves();
        pc.user.TurnDisplayOff();
        pc.user.Input();
        pc.announcer.Remove(ears);
        EXPECT_EQ(ears.presence, version == kWindows7 ? 0 : 2) << version;
    }
}

// Waits for a timer of the calling process.
void WaitForTimer(LONGLONG due, BOOL resume)
{
    const OwnedHandle timer(CreateWaitableTimerW(nullptr, FALSE, nullptr));
    LARGE_INTEGER time;
    time.QuadPart = due;
    EXPECT_TRUE(SetWaitableTimer(timer.Get(), &time, 0, nullptr, nullptr, resume));
    WaitForSingleObject(timer.Get(), INFINITE);
}

// Waits of a minute, around an hour of sleep that begins after ten seconds.
TEST_F(VersionsTest, FromWindows8OnNoRelativeWaitCountsTheTimeAsleep)
{
    constexpr LONGLONG kMinute = -600'000'000;
    constexpr ULONGLONG kOnWaking = 3'610'000, kLate = 3'660'000;
    const LONGLONG ten_minutes = (pc.clock() + 10min).count();
    const struct
    {
        const char* what;
        std::function<void()> wait;
        ULONGLONG on_7, from_8_on;
    } cases[] = {
        {"sleep", [] { Sleep(60'000); }, kOnWaking, kLate},
        {"event",
         [] {
             const OwnedHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
             WaitForSingleObject(event.Get(), 60'000);
         },
         kOnWaking, kLate},
        {"relative timer", [] { WaitForTimer(kMinute, FALSE); }, kOnWaking, kLate},
        {"absolute timer", [=] { WaitForTimer(ten_minutes, FALSE); }, kOnWaking, kOnWaking},
    };
    for (const auto& c : cases) {
        for (const bool seven : {true, false}) {
            SCOPED_TRACE(std::string(c.what) + (seven ? " on 7" : " on 10"));
            pc.os_version = seven ? kWindows7 : kWindows10;
            pc.SetClock(CalendarTime(ten_minutes) - 10min);
            Process& program = pc.Start([&] {
                const ULONGLONG before = GetTickCount64();
                c.wait();
                EXPECT_EQ(GetTickCount64() - before, seven ? c.on_7 : c.from_8_on);
                return 0;
            });
            pc.RunFor(10s);
            pc.sleep.Ask(L"test");
            pc.RunFor(1h);
            pc.sleep.WakeByUser();
            pc.RunUntilEnd(program);
        }
    }
}

TEST_F(VersionsTest, EachVersionListsTheRequestsInItsSections)
{
    const std::wstring seven = L"DISPLAY:SYSTEM:AWAYMODE:";
    RunAsProcess([&] {
        for (const auto& [version, more] :
             {std::pair{kWindows7, L""},
              {kWindows8, L"EXECUTION:PERFBOOST:"},
              {kWindows10, L"EXECUTION:PERFBOOST:ACTIVELOCKSCREEN:"}}) {
            pc.os_version = version;
            EXPECT_EQ(Sections(), seven + more);
        }
        pc.power.listing_words = kJapaneseListing;
        EXPECT_EQ(Sections(), seven + L"??:PERFBOOST:ACTIVELOCKSCREEN:")
            << "the console's code page lacks the letters";
    });
}

}  // namespace
