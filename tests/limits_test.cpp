// The limits and small print of the system's functions: how much a queue and an event take, what a
// look into a queue leaves there, and whose a name is.

#include "platform/eventlog.h"
#include "platform/kernel.h"
#include "platform/message.h"
#include "platform/owned.h"
#include "platform/power.h"
#include "platform/virtual/eventlog/event_log.h"
#include "platform/virtual/power/power.h"
#include "tests/virtual_pc_test.h"

using namespace virtual_pc;

namespace {

class LimitsTest : public VirtualPcTest
{
};

TEST_F(LimitsTest, AQueueTakesTenThousandMessages)
{
    RunAsProcess([] {
        MSG message;
        PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE);
        const DWORD self = GetCurrentThreadId();
        for (int i = 0; i < 10'000; ++i) ASSERT_TRUE(PostThreadMessageW(self, WM_USER, 0, 0)) << i;
        EXPECT_FALSE(PostThreadMessageW(self, WM_USER, 0, 0));
        EXPECT_EQ(GetLastError(), 1816u);
        EXPECT_TRUE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
        EXPECT_TRUE(PostThreadMessageW(self, WM_USER, 0, 0)) << "there is room again";
    });
}

TEST_F(LimitsTest, ALookIntoTheQueueKeepsToItsFilterAndTakesWhatItIsToldTo)
{
    RunAsProcess([] {
        MSG message{};
        const DWORD self = GetCurrentThreadId();
        EXPECT_FALSE(PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE));
        for (const UINT number : {WM_USER + 5, WM_USER + 1, WM_USER + 2}) {
            PostThreadMessageW(self, number, 0, 0);
        }
        EXPECT_FALSE(PeekMessageW(&message, nullptr, WM_USER, WM_USER, PM_NOREMOVE));
        EXPECT_TRUE(PeekMessageW(&message, nullptr, WM_USER + 1, WM_USER + 2, PM_NOREMOVE));
        EXPECT_EQ(message.message, WM_USER + 1u);
        EXPECT_TRUE(PeekMessageW(&message, nullptr, WM_USER + 1, WM_USER + 2, PM_REMOVE));
        EXPECT_TRUE(PeekMessageW(&message, nullptr, WM_USER + 1, WM_USER + 2, PM_REMOVE));
        EXPECT_EQ(message.message, WM_USER + 2u);
        EXPECT_FALSE(PeekMessageW(&message, nullptr, WM_USER + 1, WM_USER + 2, PM_REMOVE));
        PostThreadMessageW(self, WM_QUIT, 0, 0);
        EXPECT_EQ(GetMessageW(&message, nullptr, WM_USER, WM_USER), 0) << "no filter stops it";
        EXPECT_EQ(GetMessageW(&message, nullptr, 0, 0), 1);
        EXPECT_EQ(message.message, WM_USER + 5u);
    });
}

TEST_F(LimitsTest, AWaitForAllNamesEachObjectOnce)
{
    RunAsProcess([] {
        const OwnedHandle event(CreateEventW(nullptr, TRUE, TRUE, nullptr));
        const OwnedHandle other(CreateEventW(nullptr, TRUE, TRUE, nullptr));
        const HANDLE doubled[] = {event.Get(), other.Get(), event.Get()};
        EXPECT_EQ(WaitForMultipleObjects(3, doubled, TRUE, 0), WAIT_FAILED);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
        EXPECT_EQ(WaitForMultipleObjects(3, doubled, FALSE, 0), WAIT_OBJECT_0);
        EXPECT_EQ(WaitForMultipleObjects(2, doubled, TRUE, 0), WAIT_OBJECT_0);
    });
}

TEST_F(LimitsTest, ANamedObjectIsSharedByTheProcessesOfItsSessionOrOfThePc)
{
    const struct
    {
        const wchar_t* mine;
        const wchar_t* other;
        bool same_session;
        bool shared;
    } cases[] = {
        {L"Holv", L"Holv", true, true},          {L"Holv", L"Local\\Holv", true, true},
        {L"Holv", L"holv", true, false},         {L"Holv", L"Holv", false, false},
        {L"Global\\Holv", L"Holv", true, false}, {L"Global\\Holv", L"Global\\Holv", false, true},
        {nullptr, nullptr, true, false},         {L"", L"", true, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        RunAsProcess([&] {
            const OwnedHandle mine(CreateEventW(nullptr, TRUE, FALSE, c.mine));
            EXPECT_EQ(GetLastError(), DWORD{NO_ERROR});
            const auto open = [&] {
                const OwnedHandle other(CreateEventW(nullptr, FALSE, FALSE, c.other));
                EXPECT_EQ(GetLastError(), c.shared ? ERROR_ALREADY_EXISTS : NO_ERROR);
                EXPECT_TRUE(SetEvent(other.Get()));
                return 0;
            };
            pc.Install(LR"(C:\Other.exe)", open);
            std::optional<Launch> launch;
            if (!c.same_session) launch = Launch{.session = 1, .user = L"alice"};
            const Process* other = nullptr;
            {
                const Hold hold(pc);
                other = pc.StartInstalled(LR"(C:\Other.exe)", L"Other.exe", launch);
            }
            EXPECT_EQ(WaitForSingleObject(mine.Get(), 1000),
                      c.shared ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
            Sleep(10);
            EXPECT_FALSE(other->running());
        });
    }
    RunAsProcess([] {
        const OwnedHandle event(CreateEventW(nullptr, TRUE, FALSE, L"Holv"));
        EXPECT_FALSE(CreateWaitableTimerW(nullptr, FALSE, L"Holv")) << "the name is taken";
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    });
}

TEST_F(LimitsTest, AnEventTakesSoMuchAndNoMore)
{
    const struct
    {
        std::size_t characters;
        DWORD bytes;
        bool taken;
    } cases[] = {{31'839, 61'440, true}, {31'840, 0, false}, {1, 61'441, false}};
    RunAsProcess([&] {
        const OwnedEventSource source(RegisterEventSourceW(nullptr, L"Holv"));
        std::vector<BYTE> data(70'000);
        for (const auto& c : cases) {
            const std::wstring text(c.characters, L'x');
            const wchar_t* strings[] = {L"short", text.c_str()};
            EXPECT_EQ(ReportEventW(source.Get(), EVENTLOG_ERROR_TYPE, 1, 2000, nullptr, 2, c.bytes,
                                   strings, data.data()),
                      c.taken);
            EXPECT_TRUE(c.taken || GetLastError() == 1734);
        }
    });
    EXPECT_EQ(pc.event_log.records().size(), 1u);
}

TEST_F(LimitsTest, TheBatterysFlagFollowsItsCharge)
{
    const struct
    {
        int percent;
        bool mains;
        BYTE flag;
    } cases[] = {{100, false, 1}, {67, false, 1}, {66, false, 0}, {33, false, 0}, {32, false, 2},
                 {5, false, 2},   {4, false, 4},  {50, true, 8},  {90, true, 9},  {100, true, 1}};
    for (const auto& c : cases) {
        pc.power.RunOnBattery(static_cast<BYTE>(c.percent));
        if (c.mains) pc.power.RunOnMains();
        RunAsProcess([&] {
            SYSTEM_POWER_STATUS status;
            EXPECT_TRUE(GetSystemPowerStatus(&status));
            EXPECT_EQ(status.BatteryFlag, c.flag) << c.percent;
        });
    }
}

}  // namespace
