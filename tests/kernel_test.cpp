// The kernel facet and the core: threads, time, objects, locks, messages, processes and faults of
// the virtual PC.

#include <array>
#include <memory>
#include <thread>
#include <utility>

#include "platform/kernel.h"
#include "platform/lock.h"
#include "platform/message.h"
#include "platform/module.h"
#include "platform/owned.h"
#include "tests/virtual_pc_test.h"

using namespace virtual_pc;

namespace {

constexpr LONGLONG kSecond = 10'000'000;

// Starts a thread that runs a callable, which must outlive it.
template <class F>
OwnedHandle StartThread(F& function)
{
    return OwnedHandle(CreateThread(
        nullptr, 0,
        [](LPVOID parameter) -> DWORD {
            (*static_cast<F*>(parameter))();
            return 0;
        },
        &function, 0, nullptr));
}

BOOL Arm(const OwnedHandle& timer, LONGLONG seconds, LONG period_ms = 0)
{
    LARGE_INTEGER due;
    due.QuadPart = -seconds * kSecond;
    return SetWaitableTimer(timer.Get(), &due, period_ms, nullptr, nullptr, FALSE);
}

OwnedHandle MakeEvent(BOOL manual, BOOL initial = FALSE)
{
    return OwnedHandle(CreateEventW(nullptr, manual, initial, nullptr));
}

class KernelTest : public VirtualPcTest
{
};

TEST_F(KernelTest, AManualEventReleasesEverybodyAndAnAutomaticOneReleasesOne)
{
    for (const BOOL manual : {TRUE, FALSE}) {
        const int released = manual ? 3 : 1;
        std::atomic<int> through = 0;
        RunAsProcess([&] {
            const OwnedHandle event = MakeEvent(manual);
            auto wait = [&] {
                if (WaitForSingleObject(event.Get(), 1000) == WAIT_OBJECT_0) ++through;
            };
            const OwnedHandle threads[] = {StartThread(wait), StartThread(wait), StartThread(wait)};
            Sleep(10);
            EXPECT_TRUE(SetEvent(event.Get()));
            const HANDLE all[] = {threads[0].Get(), threads[1].Get(), threads[2].Get()};
            EXPECT_EQ(WaitForMultipleObjects(3, all, TRUE, INFINITE), WAIT_OBJECT_0);
            EXPECT_EQ(WaitForSingleObject(event.Get(), 0), manual ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
        });
        EXPECT_EQ(through, released) << (manual ? "manual" : "automatic");
    }
}

TEST_F(KernelTest, AWaitTakesTheLowestSignalledObjectAndLeavesTheOthersSignalled)
{
    RunAsProcess([] {
        const OwnedHandle events[] = {MakeEvent(FALSE), MakeEvent(FALSE, TRUE),
                                      MakeEvent(FALSE, TRUE)};
        const HANDLE all[] = {events[0].Get(), events[1].Get(), events[2].Get()};
        EXPECT_EQ(WaitForMultipleObjects(3, all, FALSE, INFINITE), WAIT_OBJECT_0 + 1);
        EXPECT_EQ(WaitForMultipleObjects(3, all, FALSE, INFINITE), WAIT_OBJECT_0 + 2);
        EXPECT_EQ(WaitForMultipleObjects(3, all, FALSE, 5), WAIT_TIMEOUT);
        SetEvent(all[0]);
        SetEvent(all[1]);
        EXPECT_EQ(WaitForMultipleObjects(3, all, TRUE, 5), WAIT_TIMEOUT) << "the third is missing";
        SetEvent(all[2]);
        EXPECT_EQ(WaitForMultipleObjects(3, all, TRUE, 5), WAIT_OBJECT_0);
        EXPECT_EQ(WaitForMultipleObjects(3, all, FALSE, 0), WAIT_TIMEOUT) << "all were taken";
    });
}

TEST_F(KernelTest, TimersFireWhenDueRepeatAndCanBeCancelled)
{
    RunAsProcess([] {
        const OwnedHandle timer(CreateWaitableTimerW(nullptr, FALSE, nullptr));
        const ULONGLONG start = GetTickCount64();
        EXPECT_TRUE(Arm(timer, 10, 3000));
        for (const ULONGLONG due : {10'000u, 13'000u, 16'000u}) {
            EXPECT_EQ(WaitForSingleObject(timer.Get(), INFINITE), WAIT_OBJECT_0);
            EXPECT_EQ(GetTickCount64() - start, due);
        }
        EXPECT_TRUE(CancelWaitableTimer(timer.Get()));
        EXPECT_EQ(WaitForSingleObject(timer.Get(), 60'000), WAIT_TIMEOUT);

        Arm(timer, 1);
        Sleep(2000);
        EXPECT_TRUE(CancelWaitableTimer(timer.Get()));
        EXPECT_EQ(WaitForSingleObject(timer.Get(), 0), WAIT_OBJECT_0) << "it had expired before";
        Arm(timer, 0);
        EXPECT_EQ(WaitForSingleObject(timer.Get(), 0), WAIT_OBJECT_0) << "due at once";
        Arm(timer, 1);
        Sleep(2000);
        Arm(timer, 50);
        EXPECT_EQ(WaitForSingleObject(timer.Get(), 0), WAIT_TIMEOUT) << "arming resets the signal";
    });
}

TEST_F(KernelTest, TheClockCanBeSetAndGoesOverMidnight)
{
    pc.SetClock(*ParseCalendar("2028-02-29 23:59:59"));
    RunAsProcess([] {
        Sleep(1001);
        SYSTEMTIME t;
        GetLocalTime(&t);
        EXPECT_EQ(std::tuple(t.wMonth, t.wDay, t.wDayOfWeek, t.wHour, t.wSecond, t.wMilliseconds),
                  std::tuple(3, 1, 3, 0, 0, 1));
    });
    for (const char* bad : {"2027-02-29 10:00", "2027-02-28 24:00", "2027-2-28 10:00", "10:00"}) {
        EXPECT_FALSE(ParseCalendar(bad)) << bad;
    }
}

TEST_F(KernelTest, LastErrorsAndThreadLocalSlotsBelongToTheirThread)
{
    RunAsProcess([] {
        const DWORD slot = TlsAlloc();
        SetLastError(17);
        TlsSetValue(slot, &std::cout);
        auto other = [&] {
            EXPECT_EQ(GetLastError(), 0u);
            EXPECT_EQ(TlsGetValue(slot), nullptr);
            SetLastError(18);
        };
        const OwnedHandle thread = StartThread(other);
        WaitForSingleObject(thread.Get(), INFINITE);
        EXPECT_EQ(GetLastError(), 17u);
        EXPECT_EQ(TlsGetValue(slot), &std::cout);
    });
}

TEST_F(KernelTest, MessagesWaitInTheirThreadsQueueUntilItAsks)
{
    RunAsProcess([] {
        std::vector<UINT> taken;
        std::atomic<DWORD> id = 0;
        auto loop = [&] {
            id = GetCurrentThreadId();
            Sleep(1000);  // it has no queue until it asks for the first message
            MSG message;
            while (GetMessageW(&message, nullptr, 0, 0) > 0) taken.push_back(message.message);
            Sleep(1000);  // where threads run free, it outlives the last post
        };
        const OwnedHandle thread = StartThread(loop);
        Sleep(500);
        EXPECT_FALSE(PostThreadMessageW(id, WM_USER, 0, 0));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_THREAD_ID});
        Sleep(1000);
        for (const UINT number : {WM_USER + 1, WM_USER + 2, WM_QUIT, WM_USER + 3}) {
            EXPECT_TRUE(PostThreadMessageW(id, number, 0, 0));
        }
        EXPECT_EQ(WaitForSingleObject(thread.Get(), INFINITE), WAIT_OBJECT_0);
        EXPECT_EQ(taken, (std::vector<UINT>{WM_USER + 1, WM_USER + 2}));
    });
}

TEST(MachineTest, WhatAProcessLeavesOpenAndMisusesIsTold)
{
    Machine pc({.free = kRunFree});
    Process& process = pc.Start([] {
        CreateEventW(nullptr, TRUE, FALSE, nullptr);
        const HANDLE twice = CreateWaitableTimerW(nullptr, TRUE, nullptr);
        CloseHandle(twice);
        CloseHandle(twice);
        const auto enter = [](LPVOID) -> DWORD { return CoInitialize(nullptr) != S_OK; };
        const OwnedHandle thread(CreateThread(nullptr, 0, enter, nullptr, 0, nullptr));
        WaitForSingleObject(thread.Get(), INFINITE);
        return 0;
    });
    pc.RunUntilEnd(process);
    EXPECT_EQ(LeftOpenBy(process), "event , ");
    EXPECT_EQ(pc.misuses(), (Lines{"CloseHandle with a handle that is closed",
                                   "a thread ends without a CoUninitialize"}));
    EXPECT_TRUE(pc.handles.List().empty());
}

TEST(MachineTest, AStuckMachineTellsWhatEachThreadWaitsFor)
{
    Machine pc({.free = kRunFree});
    Process& process = pc.Start([] {
        const OwnedHandle never = MakeEvent(TRUE);
        WaitForSingleObject(never.Get(), INFINITE);
        return 0;
    });
    try {
        pc.RunUntilEnd(process);
        FAIL() << "it cannot end";
    } catch (const StuckMachine& stuck) {
        EXPECT_STREQ(stuck.what(),
                     "the machine is stuck: all threads are blocked, and no alarm is left\n"
                     "  thread 0x1000: for an object to be signalled\n");
    }
}

TEST(MachineTest, ACircleOfLocksIsReportedEvenWhileTheClockCouldMove)
{
    Machine pc({.free = kRunFree});
    pc.Start([] {
        // The two threads end with their machine, in any order, and the last frees the locks.
        using Locks = std::array<CriticalSection, 2>;
        std::shared_ptr<Locks> locks[2];
        locks[0] = locks[1] = std::make_shared<Locks>();
        const auto take = [&](int first) {
            const auto kept = std::move(locks[first]);
            const ScopedLock one((*kept)[first]);
            Sleep(10);
            const ScopedLock two((*kept)[1 - first]);
        };
        auto other = [&] { take(1); };
        const OwnedHandle thread = StartThread(other);
        take(0);
        return 0;
    });
    try {
        pc.RunFor(1h);
        FAIL() << "the two threads wait for one another";
    } catch (const StuckMachine& stuck) {
        EXPECT_NE(std::string(stuck.what()).find("for a lock that thread 0x1000 has"),
                  std::string::npos)
            << stuck.what();
    }
}

TEST(PaceTest, PacedTimeWaitsForTheHostsClock)
{
    const auto start = std::chrono::steady_clock::now();
    Machine pc({.free = kRunFree, .pace = 50});
    pc.RunFor(5s);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 100ms);
    EXPECT_EQ(pc.now(), 5s);
}

}  // namespace
