// The state machine: its entries and leaves, and the loop that drives it, judged by the log lines
// and the final state.

#include <algorithm>
#include <sstream>

#include "platform/module.h"
#include "platform/service.h"
#include "platform/virtual/power/power.h"
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

std::string Change(ESystemState from, ESystemState to)
{
    return "1 State update " + Name(from) + " >>----->> " + Name(to) + " happened here";
}

const Lines kAway{"1 ConfigureAwayMode entry", "1 ConfigureAwayMode exit"};
const Lines kRequired{"1 ConfigureSystemRequired entry", "1 ConfigureSystemRequired exit"};
const Lines kLeaveActive{"1 LeaveNeverSleepActiveState entry", "1 STOPPING CPU MONITORING",
                         "1 LeaveNeverSleepActiveState exit"};
const Lines kLeaveDnd{"1 LeaveNeverSleepDoNotDisturbState entry",
                      "1 LeaveNeverSleepDoNotDisturbState exit"};
const Lines kNotActive{"1 Current state not HOLV_ACTIVE or HOLV_IDLE"};
const Lines kCaught{"1 Transition caught"};
const Lines kStillNormal{"1 Entering S0 from HOLV State S0_NORMAL"};
const Lines kExited{"6 HOLV State Machine Exited"};

// What is undone when a state is left.
Lines Left(const Lines& steps)
{
    return Lines{"1 LeaveNeverSleepState entry"} + steps + Lines{"1 LeaveNeverSleepState exit"};
}
const Lines kLeftActive = Left(kLeaveActive);

Lines Transitioned(ESystemState to, ESystemState from)
{
    return {"1 Transitioned to " + Name(to) + " from " + Name(from)};
}

Lines LeftDnd(ESystemState previous, const Lines& more = {})
{
    return Left(kLeaveDnd + Transitioned(HOLV_DND, previous) + more);
}

Lines LeftS3(ESystemState previous, const Lines& more = {})
{
    return Left(Transitioned(HOLV_S3, previous) + more);
}

const struct
{
    std::string announced;
    std::string operation;
    Lines requests;
} kEntries[] = {
    {"1 Entering S0 from HOLV State ", "EnterNormalS0State", kRequired},
    {"2 Entering HOLV Active State", "EnterNeverSleepActiveState", kAway + kRequired},
    {"2 Entering HOLV Idle State", "EnterNeverSleepIdleState", {}},
    {"2 Entering HOLV DND State", "EnterNeverSleepDoNotDisturbState", kRequired},
};

Lines Over(ESystemState state)
{
    return {"1 OnLeaveNeverSleepDoNotDisturbTime, current state " + Name(state)};
}
const Lines kChosen{"1 EnterNeverSleepState entry", "1 Going to HOLV_ACTIVE",
                    "1 EnterNeverSleepState exit"};

// What an entry does, and what the loop says before it.
Lines Enter(ESystemState to, ESystemState from)
{
    const std::string line = "1 " + kEntries[to].operation;
    return Lines{line + " entry", Change(from, to)} + kEntries[to].requests + Lines{line + " exit"};
}

Lines Announced(ESystemState to, ESystemState from)
{
    return {kEntries[to].announced + (to == S0_NORMAL ? Name(from) : "")};
}

Lines Normal(ESystemState from) { return Announced(S0_NORMAL, from) + Enter(S0_NORMAL, from); }
Lines Active(ESystemState from) { return Announced(HOLV_ACTIVE, from) + Enter(HOLV_ACTIVE, from); }
Lines Idle(ESystemState from) { return Announced(HOLV_IDLE, from) + Enter(HOLV_IDLE, from); }
Lines Dnd(ESystemState from) { return Announced(HOLV_DND, from) + Enter(HOLV_DND, from); }

Lines Refused(ESystemState to)
{
    const std::string& operation = kEntries[to].operation;
    return {"1 " + operation + " entry", "1 Override detected, " + operation + " exit"};
}

void Fire(GlobalEvent slot)
{
    if (slot < kFirstTimer) {
        EXPECT_TRUE(SignalGlobalEvent(slot));
    } else {
        EXPECT_TRUE(ArmGlobalTimer(slot, -1, 0, FALSE));
    }
}

class StateTest : public VirtualPcTest
{
protected:
    StateTest()
    {
        Set(L"LoggingLevel", 6);
        // The test lets the PC sleep with no user to wake it.
        pc.power.s3_supported = false;
    }

    void Set(const wchar_t* setting, DWORD value)
    {
        pc.registry.SetDword(kUserKey, setting, value);
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
            if (!machine && !line.who.starts_with("RegInit")) continue;
            std::string message = line.text;
            if (line.level > '2' && line.level != '?' && !message.starts_with("HOLV State Machine"))
                continue;
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

const std::string kNoOemKey = "1 OEM default registry path does not exist.\n";
const std::string kNoDevice = "1 HOLVDevice was not found";
const std::string kNoHardware =
    "1 ACPI device is mssing. No hardware notification will be supported ....\n";
const std::string kReady = "6 HOLV State Machine initialized";

TEST_F(StateTest, StartsInNormalUseAndStopsWithoutLeaving)
{
    pc.os_version = kWindows7;
    Start();
    EXPECT_LINES(Said(),
                 (Lines{kNoOemKey, kNoDevice, "1 This system is running Windows 7 [6.1]",
                        kNoHardware, "1 HOLV Feature is enabled on service start\n"} +
                  kAway + kRequired + Enter(S0_NORMAL, HOLV_INIT) + Lines{kReady} + kStillNormal));
    EXPECT_EQ(S::m_eSystemState, S0_NORMAL);
    EXPECT_LINES(After(EVENT_ENTER_ACTIVE), Active(S0_NORMAL));
    Stop();
    EXPECT_LINES(Said(), Lines{"2 HOLV service is stopping"} + kAway + kRequired + kExited);
    EXPECT_EQ(S::m_eSystemState, S0_NORMAL);
    EXPECT_FALSE(HasGlobalEvent(EVENT_ENTER_S0)) << "closed";
}

TEST_F(StateTest, WithTheFeatureOffItStartsAndWaitsInTheInitialState)
{
    Set(L"EnableNeverSleep", 0);
    Set(L"DebugEnabled", 1);
    Start();
    EXPECT_LINES(Said(),
                 (Lines{kNoOemKey, kNoDevice, "1 This system is NOT running Windows 7 [6.2]",
                        "1 HOLV Feature is not enabled on service start\n", kReady}));
    EXPECT_EQ(S::m_eSystemState, HOLV_INIT);
    EXPECT_FALSE(S::m_bIsWindows7);
    Stop();
}

TEST_F(StateTest, WithoutEventsItStartsAndStopsAtOnce)
{
    Set(L"LoggingEnabled", kLogToDebugger);
    // As a service, which the process was not started as.
    pc.registry.SetString(LR"(HKCR\AppID\{7A31C5E2-90D4-4B6E-A1F3-2C8D5E9B0A47})", L"LocalService",
                          L"HOLVService");
    for (const wchar_t* command_line : {L"HOLVService.exe -Debug", L"a-b.exe /x /DEBUG -y"}) {
        heard.Forget();
        Process& process =
            pc.Start([] { return wWinMain(nullptr, nullptr, nullptr, 0); }, command_line);
        pc.RunUntilEnd(process);
        EXPECT_EQ(process.exit_code(), ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
        EXPECT_EQ(heard.Times("EnableHOLV (1), MuteAudio(0), EnableDND(1), DND Time(1320-360)"), 1);
        EXPECT_EQ(heard.Times("Return Code=-1, GLE=6"), 1);
        EXPECT_EQ(heard.Times("HOLV State Machine Exited"), 1);
    }
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
        EXPECT_EQ(heard.Times("HOLV State Machine Exited"), 1);
        EXPECT_EQ(S::m_eSystemState, S0_NORMAL);
    }
}

TEST_F(StateTest, AWaitThatFailsEndsTheStateMachineWithItsError)
{
    Start();
    Said();
    pc.faults.Set("WaitForMultipleObjects", {.error = 1816});
    Fire(EVENT_REGISTRY_CHANGED);
    pc.RunUntilEnd(*m_service);
    EXPECT_LINES(Said(),
                 Lines{"2 HOLV Registry has been changed"} +
                     Lines{"2 Unknown event, WaitForMultipleObjects Return Code=-1, GLE=1816"} +
                     kAway + kRequired + kExited);
}

// --- The loop ---

// Steps on the way to a state: the loop's own, and what other threads do to the machine directly.
enum Step : int
{
    kS0 = EVENT_ENTER_S0,
    kActive = EVENT_ENTER_ACTIVE,
    kIdle = EVENT_ENTER_IDLE,
    kDnd = EVENT_ENTER_DND,
    kSuspend = kGlobalEventCount,
    kSwitchOff,
    kOverride,
    kNonsense,
};

TEST_F(StateTest, EverySignalIsActedOnFromEveryStateAsItsRowSays)
{
    const ESystemState nonsense{6};
    const Lines to_active{"2 Entering HOLV Active State"};
    const Lines to_dnd{"2 Entering HOLV DND State"};
    const Lines off_dnd{"1 Leaving HOLV DND State -> HOLV_ACTIVE"};
    const Lines starts{"2 Entering HOLV Registry Do Not Disturb time interval"};
    const Lines ends{"2 Leaving HOLV Registry Do Not Disturb time interval"};
    const Lines no_active = Refused(HOLV_ACTIVE);
    const Lines no_dnd = Refused(HOLV_DND);
    const struct
    {
        std::vector<Step> from_normal;
        GlobalEvent slot;
        ESystemState to;
        Lines story;
    } cases[] = {
        {{}, EVENT_ENTER_S0, S0_NORMAL, kStillNormal},
        {{kActive}, EVENT_ENTER_S0, S0_NORMAL, kLeftActive + Normal(HOLV_ACTIVE)},
        {{kActive, kIdle}, EVENT_ENTER_S0, S0_NORMAL, kLeftActive + Normal(HOLV_IDLE)},
        {{kDnd}, EVENT_ENTER_S0, S0_NORMAL, LeftDnd(S0_NORMAL) + Normal(HOLV_DND)},
        {{kActive, kDnd},
         EVENT_ENTER_S0,
         S0_NORMAL,
         LeftDnd(HOLV_ACTIVE, kNotActive) + Normal(HOLV_DND)},
        {{kSuspend}, EVENT_ENTER_S0, S0_NORMAL, LeftS3(S0_NORMAL) + Normal(HOLV_S3)},
        {{kActive, kIdle, kSuspend},
         EVENT_ENTER_S0,
         S0_NORMAL,
         LeftS3(HOLV_IDLE, kCaught + kLeaveActive) + Normal(HOLV_S3)},
        {{kSuspend, kS0}, EVENT_ENTER_S0, S0_NORMAL, kStillNormal + kRequired},
        {{kActive, kSwitchOff}, EVENT_ENTER_S0, S0_NORMAL, Left({}) + Normal(HOLV_INIT)},
        {{kNonsense}, EVENT_ENTER_S0, S0_NORMAL, Left({}) + Normal(nonsense)},

        {{}, EVENT_ENTER_ACTIVE, HOLV_ACTIVE, Active(S0_NORMAL)},
        {{kActive}, EVENT_ENTER_ACTIVE, HOLV_ACTIVE, to_active},
        {{kActive, kIdle}, EVENT_ENTER_ACTIVE, HOLV_ACTIVE, kLeftActive + Active(HOLV_IDLE)},
        {{kDnd}, EVENT_ENTER_ACTIVE, HOLV_ACTIVE, LeftDnd(S0_NORMAL) + Active(HOLV_DND)},
        {{kActive, kSuspend},
         EVENT_ENTER_ACTIVE,
         HOLV_ACTIVE,
         LeftS3(HOLV_ACTIVE, kCaught + kLeaveActive) + Active(HOLV_S3) + kAway + kRequired},
        {{kOverride}, EVENT_ENTER_ACTIVE, S0_NORMAL, to_active + no_active + kStillNormal},

        {{kActive}, EVENT_ENTER_IDLE, HOLV_IDLE, Idle(HOLV_ACTIVE)},
        {{kActive, kIdle}, EVENT_ENTER_IDLE, HOLV_IDLE, {"2 Entering HOLV Idle State"}},
        {{kOverride}, EVENT_ENTER_IDLE, HOLV_IDLE, Idle(S0_NORMAL)},

        {{}, EVENT_ENTER_DND, HOLV_DND, Dnd(S0_NORMAL)},
        {{kActive}, EVENT_ENTER_DND, HOLV_DND, kLeftActive + Dnd(HOLV_ACTIVE)},
        {{kDnd}, EVENT_ENTER_DND, HOLV_DND, to_dnd},
        {{kActive, kOverride},
         EVENT_ENTER_DND,
         S0_NORMAL,
         kLeftActive + to_dnd + no_dnd + kLeftActive + Normal(HOLV_ACTIVE)},

        {{kDnd}, EVENT_LEAVE_DND, HOLV_ACTIVE, off_dnd + kLeaveDnd + Enter(HOLV_ACTIVE, HOLV_DND)},
        {{kActive}, EVENT_LEAVE_DND, HOLV_ACTIVE, off_dnd + Lines{"1 Current state not HOLV_DND"}},
        {{kActive}, EVENT_REGISTRY_CHANGED, HOLV_ACTIVE, {"2 HOLV Registry has been changed"}},

        {{kActive}, TIMER_IDLE, HOLV_ACTIVE, {"2 HOLV Idle timer expired"}},
        {{}, TIMER_DND_START, S0_NORMAL, starts + kAway + kRequired},
        {{kActive},
         TIMER_DND_START,
         HOLV_DND,
         kLeftActive + starts + kAway + Enter(HOLV_DND, HOLV_ACTIVE)},
        {{kDnd}, TIMER_DND_START, HOLV_DND, starts + kAway},
        {{}, TIMER_DND_END, S0_NORMAL, ends + kAway + Over(S0_NORMAL)},
        {{kActive},
         TIMER_DND_END,
         HOLV_ACTIVE,
         kLeftActive + ends + kAway + Over(HOLV_ACTIVE) + kChosen + to_active},
        {{kDnd},
         TIMER_DND_END,
         HOLV_ACTIVE,
         LeftDnd(S0_NORMAL) + ends + kAway + Over(HOLV_DND) + kChosen + LeftDnd(S0_NORMAL) +
             Active(HOLV_DND)},
        {{kDnd, kSuspend},
         TIMER_DND_END,
         HOLV_S3,
         LeftS3(HOLV_DND, kCaught + kLeaveDnd) + ends + kAway + Over(HOLV_S3) +
             Lines{"1 Will let OnResume handle state transition"}},
        {{kActive},
         TIMER_CPU_USAGE,
         HOLV_IDLE,
         Lines{"2 Amount of CPU usage is 0 which is below the idle threshold 5"} +
             Idle(HOLV_ACTIVE)},
        {{kActive}, TIMER_BATTERY_USAGE, HOLV_ACTIVE, {}},
        {{kActive}, TIMER_SLEEP, HOLV_ACTIVE, kAway + kRequired},
    };
    const std::map<Step, std::function<void()>> others{
        {kSuspend, S::EnterS3State},
        {kSwitchOff, S::StopNeverSleep},
        {kOverride, [] { S::m_bOverride = TRUE; }},
        {kNonsense, [=] { S::m_eSystemState = nonsense; }},
    };
    Start();
    for (const auto& c : cases) {
        RunAsProcess([] {
            // Twice, so that the state before this one is S0_NORMAL too, whatever came earlier.
            S::UpdateState(S0_NORMAL);
            S::UpdateState(S0_NORMAL);
            S::m_bOverride = FALSE;
        });
        std::string what = "from S0_NORMAL by";
        for (const Step step : c.from_normal) {
            what += " " + std::to_string(step);
            if (others.contains(step)) {
                RunAsProcess(others.at(step));
            } else {
                After(static_cast<GlobalEvent>(step));
            }
        }
        Lines said = After(c.slot);
        Lines expected = c.story;
        if (kRunFree) {
            // The order of a suspend thread's lines is not fixed.
            std::ranges::sort(said);
            std::ranges::sort(expected);
        }
        EXPECT_LINES(said, expected) << what << ", then slot " << c.slot;
        EXPECT_EQ(S::m_eSystemState, c.to) << what << ", then slot " << c.slot;
        if (c.to == S0_NORMAL) {
            EXPECT_FALSE(S::m_bOverride) << "it ends in normal use";
        }
    }
    Stop();
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
        return line[0] != '2' && line != kStillNormal.front();
    });
    EXPECT_LINES(taken, kStillNormal + Lines{"2 Entering HOLV Active State"} +
                            Lines{"2 Entering HOLV Idle State"} +
                            Lines{"2 Entering HOLV DND State"} +
                            Lines{"2 HOLV service is stopping"});
}

TEST_F(StateTest, ASignalRaisedWhileItsActionRunsCountsAsDone)
{
    Start();
    pc.Watch(reinterpret_cast<const std::atomic<std::int32_t>*>(&S::m_eSystemState),
             [](std::int32_t, std::int32_t to) {
                 if (to != HOLV_ACTIVE) return;
                 SetEvent(g_hGlobalEvents[EVENT_ENTER_ACTIVE]);
                 SetEvent(g_hGlobalEvents[EVENT_ENTER_IDLE]);
             });
    EXPECT_LINES(After(EVENT_ENTER_ACTIVE), Active(S0_NORMAL) + Idle(HOLV_ACTIVE));
    pc.Watch(nullptr, {});
    Stop();
}

TEST_F(StateTest, AHandlersChoiceOfANeverSleepStateIsOnlySignalled)
{
    RunAsProcess([&] {
        RegInit();
        const GlobalEvents events;
        S::m_bSeenDndStart = TRUE;
        Said();
        S::EnterNeverSleepState();
        EXPECT_LINES(Said(), (Lines{"1 EnterNeverSleepState entry", "1 Going to HOLV_ACTIVE",
                                    "1 EnterNeverSleepState exit"}));
        EXPECT_FALSE(S::m_bSeenDndStart);
        EXPECT_EQ(S::m_eSystemState, HOLV_INIT);
        EXPECT_EQ(WaitForMultipleObjects(kGlobalEventCount, g_hGlobalEvents, FALSE, 0),
                  DWORD{EVENT_ENTER_ACTIVE});
    });
}

// --- Decisions ---

TEST_F(StateTest, ThePowerDecisionTellsEveryInputUnderItsName)
{
    struct Input
    {
        const char* name;
        std::function<void(BOOL)> set;
    };
    BOOL on_ac = FALSE;
    const Input inputs[] = {
        {"g_bEnableNeverSleep", [](BOOL on) { g_bEnableNeverSleep = on != 0; }},
        {"bAc", [&](BOOL on) { on_ac = on; }},
        {"g_bEnableHolvOnDC", [](BOOL on) { g_bEnableHolvOnDC = on != 0; }},
        {"m_bBatteryThresholdCrossed", [](BOOL on) { S::m_bBatteryThresholdCrossed = on; }},
        {"g_bEnableDoNotDisturb", [](BOOL on) { g_bEnableDoNotDisturb = on != 0; }},
        {"m_bSeenDndStart", [](BOOL on) { S::m_bSeenDndStart = on; }},
        {"g_bDndToS3", [](BOOL on) { g_bDndToS3 = on != 0; }},
    };
    RunAsProcess([&] {
        RegInit();
        for (const Input& on : inputs) {
            std::string list;
            for (const Input& input : inputs) {
                input.set(&input == &on);
                list += std::string(list.empty() ? " entry: " : ", ") + input.name +
                        (&input == &on ? "{TRUE}" : "{FALSE}");
            }
            const std::size_t before = LogBytes().size();
            S::ConfigureAwayMode(on_ac);
            S::ConfigureSystemRequired(on_ac);
            const std::string said = LogBytes().substr(before);
            EXPECT_NE(said.find(" : ConfigureAwayMode" + list + " [L=1]"), said.npos) << said;
            EXPECT_NE(said.find(" : ConfigureSystemRequired" + list + " [L=1]"), said.npos) << said;
        }
    });
}

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

// --- Threads ---

// Two threads change the state at once; every change in the log starts where the last one ended.
void ExpectUnbrokenChainOfTwo(Machine& pc, const Machine::Options&)
{
    pc.registry.SetDword(kUserKey, L"LoggingEnabled", kLogToDebugger);
    Process& process = pc.Start([] {
        RegInit();
        const auto change = [](LPVOID states) -> DWORD {
            for (int i = 0; i < 20; ++i) {
                S::UpdateState(static_cast<const ESystemState*>(states)[i % 2]);
            }
            return 0;
        };
        ESystemState states[2][2] = {{S0_NORMAL, HOLV_ACTIVE}, {HOLV_S3, HOLV_DND}};
        const OwnedHandle threads[] = {
            OwnedHandle(CreateThread(nullptr, 0, change, states[0], 0, nullptr)),
            OwnedHandle(CreateThread(nullptr, 0, change, states[1], 0, nullptr))};
        for (const OwnedHandle& thread : threads) WaitForSingleObject(thread.Get(), INFINITE);
        return 0;
    });
    pc.RunUntilEnd(process);
    const auto& [changes, last] = ExpectUnbrokenChain(Heard(pc));
    EXPECT_EQ(changes, 40);
    EXPECT_EQ(last, Name(S::m_eSystemState));
}

TEST(StateRaceTest, ChangesByTwoThreadsFormOneUnbrokenChain)
{
    StormOnPc({.seeds = 20, .free = 5}, ExpectUnbrokenChainOfTwo);
}

}  // namespace
