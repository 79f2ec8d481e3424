// The state machine: its entries and leaves, and the loop that drives it, judged by the log lines
// and the final state.

#include <algorithm>
#include <sstream>

#include "pc/service_view.h"
#include "platform/virtual/devices/device.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/sound/audio.h"
#include "state/state_trail.h"
#include "tests/running_service.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

using S = CNeverSleepState;

std::string Name(ESystemState state)
{
    const std::wstring name = StateName(state);
    return {name.begin(), name.end()};
}

void Fire(GlobalEvent slot)
{
    if (slot < kFirstTimer) {
        EXPECT_TRUE(SignalGlobalEvent(slot));
    } else {
        EXPECT_TRUE(ArmGlobalTimer(slot, -1, 0, FALSE));
    }
}

// What is done amid an operation, by what it says.
constexpr std::string_view kSteps[] = {
    "HOLV State Machine initialized",      "HOLV State Machine Exited",
    "ConfigureAudioDeviceMuteStates exit", "Killing Lync activity monitor.",
    "CPowerPolicyManager::EnterHolvState", "CPowerPolicyManager::EnterDoNotDisturbState",
    "Output from powercfg -requests",      "currTime is 480 minutes since midnight\n",
};

class StateTest : public VirtualPcTest
{
protected:
    StateTest()
    {
        Set(L"LoggingLevel", 6);
        // The test lets the PC sleep with no user to wake it.
        pc.power.s3_supported = false;
    }

    // Starts the service, with `before` before its state machine runs.
    void Start(const std::function<void()>& before = {})
    {
        FreshService();
        m_service = &pc.Start([before] { return RunService(before); });
        pc.RunFor(1ms);
    }

    void Stop()
    {
        Fire(EVENT_SERVICE_STOP);
        pc.RunUntilEnd(*m_service);
    }

    // What the state machine has said since the last time it was asked, a line each: the level and
    // the message. Details and the inputs that the power decision lists are left out.
    Lines Said()
    {
        Lines story;
        for (const HeardLine& line : m_story.All()) {
            const bool machine = line.who.starts_with("CNeverSleepState::");
            std::string message = line.text;
            const bool step = std::ranges::find(kSteps, message) != std::end(kSteps);
            if (!step && !machine && !line.who.starts_with("RegInit")) continue;
            if (!step && line.level > '2' && line.level != '?') continue;
            if (message.starts_with("Configure")) message = message.substr(0, message.find(':'));
            story.push_back(std::string{line.level} + " " + message);
        }
        m_story.Forget();
        return story;
    }

    Lines After(GlobalEvent slot)
    {
        Said();
        Fire(slot);
        pc.RunFor(1ms);
        return Said();
    }

    Process* m_service = nullptr;

private:
    Heard m_story{pc};
};

// --- Start and end ---

TEST_F(StateTest, StartsInNormalUseAndStopsWithoutLeaving)
{
    pc.os_version = kWindows7;
    Start();
    EXPECT_LINES(Said(), BlockOf("starts.txt", "on Windows 7"));
    EXPECT_EQ(S::m_eSystemState, S0_NORMAL);
    Stop();
    EXPECT_LINES(Said(), BlockOf("starts.txt", "a stop"));
    EXPECT_EQ(S::m_eSystemState, S0_NORMAL);
    EXPECT_EQ(S::m_ePreviousState, S0_NORMAL);
    EXPECT_FALSE(S::m_pAudioManager.Get());
    EXPECT_FALSE(HasGlobalEvent(EVENT_ENTER_S0) || SignalGlobalEvent(EVENT_ENTER_S0)) << "closed";
}

TEST_F(StateTest, WithTheFeatureOffItStartsAndWaitsInTheInitialState)
{
    Set(L"EnableNeverSleep", 0);
    Set(L"DebugEnabled", 1);
    pc.RunFor(1s);
    // A handler may have been there before it.
    Start([] { S::m_eSystemState = S::m_ePreviousState = HOLV_S3; });
    EXPECT_LINES(Said(), BlockOf("starts.txt", "with the feature off"));
    EXPECT_EQ(S::m_eSystemState, HOLV_INIT);
    EXPECT_EQ(S::m_ePreviousState, HOLV_INIT);
    EXPECT_EQ(S::m_ullLastSusResEventTime, 1000u);
    EXPECT_FALSE(S::m_bIsWindows7);
    Stop();
}

TEST_F(StateTest, AMissingHandleEndsTheStateMachineAndIsSkippedEverywhereElse)
{
    Set(L"LoggingEnabled", kLogToDebugger);
    for (int slot = 0; slot < kGlobalEventCount; ++slot) {
        const bool event = slot < kFirstTimer;
        const auto nth = static_cast<std::uint64_t>(event ? slot : slot - kFirstTimer) + 1;
        pc.faults.Set(event ? "CreateEventW" : "CreateWaitableTimerW", {.first = nth});
        heard.Forget();
        Start([] {
            S::UpdateState(HOLV_ACTIVE);
            S::LeaveNeverSleepState(S0_NORMAL);
            S::EnterNeverSleepState();
        });
        ASSERT_FALSE(m_service->running()) << "slot " << slot;
        EXPECT_EQ(heard.Times((event ? "CreateEvent (" : "CreateWaitabletimer (") +
                              std::to_string(slot) + ") failed"),
                  1);
        EXPECT_EQ(heard.Times("WaitForMultipleObjects Return Code=-1, GLE=6"), 1);
        EXPECT_EQ(heard.Times("STOPPING CPU MONITORING"), slot != TIMER_CPU_USAGE);
        EXPECT_EQ(heard.Times("Going to HOLV_ACTIVE"), slot != EVENT_ENTER_ACTIVE);
        EXPECT_EQ(heard.Has("Can't set timer for DoNotDisturb"), slot == TIMER_DND_START);
        EXPECT_EQ(heard.Times("HOLV State Machine Exited"), 1);
        EXPECT_EQ(S::m_eSystemState, S0_NORMAL);
    }
}

// --- The loop ---

TEST_F(StateTest, EverySignalIsActedOnFromEveryStateAsItsBlockSays)
{
    // What other threads do to the machine directly.
    const std::map<std::string, std::function<void()>> others{
        {"suspend", S::EnterS3State},
        {"switch-off", S::StopNeverSleep},
        {"override", [] { S::m_bOverride = TRUE; }},
        {"nonsense", [] { S::m_eSystemState = ESystemState{6}; }},
    };
    const std::vector<Block> cases = BlocksOf("state.txt");
    EXPECT_GE(cases.size(), 37u);
    pc.registry.SetDword(LR"(HKLM\Software\Microsoft\Communicator\4.0)", L"x", 1);
    Start();
    for (auto [title, expected] : cases) {
        SCOPED_TRACE(title);
        RunAsProcess([] {
            // Twice, so that the state before this one is S0_NORMAL too, whatever came earlier.
            S::UpdateState(S0_NORMAL);
            S::UpdateState(S0_NORMAL);
            S::m_bOverride = FALSE;
            S::m_bIdleExpiryPending = TRUE;
            S::StopMonitorMicrosoftLyncActivity();
        });
        const std::size_t colon = title.find(": ");
        std::istringstream steps(title.substr(0, colon));
        Lines said;
        for (std::string step; steps >> step;) {
            if (others.contains(step)) {
                RunAsProcess(others.at(step));
            } else {
                said = After(static_cast<GlobalEvent>(SlotOf(step).value()));
            }
        }
        if (kRunFree) {
            // The order of a suspend thread's lines is not fixed.
            std::ranges::sort(said);
            std::ranges::sort(expected);
        }
        EXPECT_LINES(said, expected);
        EXPECT_EQ(Name(S::m_eSystemState), title.substr(colon + 2));
        EXPECT_FALSE(S::m_eSystemState == S0_NORMAL && S::m_bOverride) << "it ends in normal use";
        if (!std::ranges::count(said, "1 EnterNeverSleepDoNotDisturbState exit")) continue;
        EXPECT_FALSE(S::m_bIdleExpiryPending || GlobalTimerDue(TIMER_CPU_USAGE, GetTickCount64()));
    }
    Stop();
}

// Where a publisher comes late, the oldest changes are missing and none is told twice.
TEST_F(StateTest, TheTrailKeepsTheLastChangesInTheirOrder)
{
    RunAsProcess([] {
        constexpr std::size_t kChanges = 70;
        constexpr std::size_t kStates = 5;
        EXPECT_EQ(LastStateNote().at, 0u);
        NoteState(HOLV_DND);
        EXPECT_EQ(StateNotesFrom(0).size(), 1u);
        const std::uint64_t before = StatesNoted();
        for (std::size_t i = 0; i < kChanges; ++i) NoteState(ESystemState(i % kStates));
        const std::vector<StateNote> notes = StateNotesFrom(before);
        ASSERT_EQ(notes.size(), 64u);
        for (std::size_t i = 0; i < notes.size(); ++i) {
            EXPECT_EQ(notes[i].state, ESystemState((kChanges - notes.size() + i) % kStates));
        }
    });
}

TEST_F(StateTest, TheLowerSlotIsActedOnFirst)
{
    Start([] {
        Fire(TIMER_IDLE);
        for (const GlobalEvent event :
             {EVENT_SERVICE_STOP, EVENT_ENTER_DND, EVENT_ENTER_IDLE, EVENT_ENTER_ACTIVE}) {
            Fire(event);
        }
    });
    Lines taken = Said();
    std::erase_if(taken, [](const std::string& line) {
        return line[0] != '2' && !line.starts_with("1 Entering S0");
    });
    EXPECT_LINES(taken, (Lines{"1 Entering S0 from HOLV State S0_NORMAL",
                               "2 Entering HOLV Active State", "2 Entering HOLV Idle State",
                               "2 Entering HOLV DND State", "2 HOLV service is stopping"}));
}

TEST_F(StateTest, ASignalRaisedWhileItsActionRunsCountsAsDone)
{
    const Device& device = pc.devices.AddHolvDevice();
    Start();
    pc.Watch(reinterpret_cast<const std::atomic<std::int32_t>*>(&S::m_eSystemState),
             [&](std::int32_t from, std::int32_t to) {
                 EXPECT_TRUE(kRunFree || LastStateNote().state == from) << "told when it is noted";
                 EXPECT_NE(device.Mode(), static_cast<DWORD>(to)) << "the device follows";
                 if (to != HOLV_ACTIVE) return;
                 SetEvent(g_hGlobalEvents[EVENT_ENTER_ACTIVE]);
                 SetEvent(g_hGlobalEvents[EVENT_ENTER_IDLE]);
             });
    EXPECT_LINES(After(EVENT_ENTER_ACTIVE),
                 BlockOf("starts.txt", "active, and both signals again amid the entry"));
    pc.Watch(nullptr, {});
    Stop();
}

TEST_F(StateTest, AHandlersChoiceOfANeverSleepStateIsOnlySignalled)
{
    RunAsProcess([&] {
        RegInit();
        const GlobalEvents events;
        EXPECT_TRUE(S::OnAc()) << "as long as nothing is known";
        S::m_bSeenDndStart = TRUE;
        pc.Watch(&S::m_bSeenDndStart, [](std::int32_t, std::int32_t) {
            EXPECT_EQ(WaitForSingleObject(g_hGlobalEvents[EVENT_ENTER_ACTIVE], 0),
                      DWORD{WAIT_TIMEOUT})
                << "the entry would still find the hours";
        });
        Said();
        S::LeaveNeverSleepState(HOLV_INIT);  // where it is already
        S::EnterNeverSleepState();
        pc.Watch(nullptr, {});
        EXPECT_EQ(Said()[2], "1 Going to HOLV_ACTIVE");
        EXPECT_FALSE(S::m_bSeenDndStart);
        EXPECT_EQ(S::m_eSystemState, HOLV_INIT);
        EXPECT_EQ(WaitForMultipleObjects(kGlobalEventCount, g_hGlobalEvents, FALSE, 0),
                  DWORD{EVENT_ENTER_ACTIVE});
        pc.SetClock(*ParseCalendar("2026-03-02 23:00"));
        S::EnterNeverSleepState();
        EXPECT_EQ(Said()[1], "1 Going to HOLV_DND");
        const OwnedHandle missing(std::exchange(g_hGlobalEvents[EVENT_ENTER_DND], nullptr));
        S::EnterNeverSleepState();
        EXPECT_EQ(Said()[1], "1 Going to HOLV_ACTIVE") << "instead";
    });
}

TEST_F(StateTest, ASlowListingHoldsUpNeitherTheUsersSpeakersNorAHandler)
{
    const auto held_up = [&] {
        const Instant before = pc.now();
        RunAsProcess([] { S::UpdateState(HOLV_ACTIVE); });
        return pc.now() - before;
    };
    const Endpoint& speakers = pc.audio.Add(L"Speakers");
    Set(L"MuteAudio", 1);
    Start();
    After(EVENT_ENTER_ACTIVE);
    EXPECT_TRUE(speakers.Muted());
    pc.power.listing_takes = 10s;
    After(EVENT_ENTER_S0);
    EXPECT_FALSE(speakers.Muted()) << "although the requests are still being listed";
    EXPECT_EQ(held_up(), 0s);
    pc.RunFor(1min);
    S::m_bOverride = TRUE;
    After(TIMER_DND_START);
    EXPECT_EQ(held_up(), 0s) << "by an entry that was refused";
    pc.RunFor(1min);
    Stop();
}

// --- Decisions ---

TEST_F(StateTest, LyncIsInstalledWhereAnyOfItsKeysIs)
{
    const std::pair<const wchar_t*, BOOL> cases[] = {
        {LR"(Microsoft\Windows\CurrentVersion\Uninstall\{11849FBC-C416-4742-8279-17C3A2C85F72})",
         TRUE},
        {LR"(Microsoft\Windows\CurrentVersion\Uninstall\Office15.LYNC)", TRUE},
        {LR"(Microsoft\Windows\CurrentVersion\Uninstall\Office15.LYNCENTRY)", TRUE},
        {LR"(Microsoft\Communicator\4.0)", TRUE},
        {LR"(Microsoft\Office\15.0\Registration\{0EA305CE-B708-4D79-8087-D636AB0F1A4D})", TRUE},
        {LR"(Wow6432Node\Microsoft\Communicator\4.0)", TRUE},
        {LR"(Wow6432Node\Microsoft\Office\15.0\Lync)", TRUE},
        {LR"(Wow6432Node\Microsoft\Office\15.0\Registration\{0EA305CE-B708-4D79-8087-D636AB0F1A4D})",
         TRUE},
        {LR"(Microsoft\Communicator\3.0)", FALSE},
        {LR"(Microsoft\Office\15.0\Lync)", FALSE},
    };
    RunAsProcess([&] {
        for (const auto& [path, installed] : cases) {
            const std::wstring key = LR"(HKLM\Software\)" + std::wstring(path);
            pc.registry.SetDword(key, L"x", 0);
            EXPECT_EQ(S::IsLyncInstalled(), installed) << std::string(key.begin(), key.end());
            pc.registry.DeleteKey(key);
        }
    });
}

}  // namespace
