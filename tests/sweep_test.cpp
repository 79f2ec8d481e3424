// The service is struck wherever it can be, in each story of its life: a function of Windows fails,
// once or from some call on, or lies about what it has done, or two of them fail; the process ends,
// or the PC's power. Then what was begun is done again, the service runs through one more leave and
// return, and stops: everything is as it was.

#include "platform/virtual/power/sleep.h"
#include "tests/users_pc.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

// --- The stories ---

struct SweptStory
{
    const char* name;
    void (*begin)(UsersPc& user);  // is not struck
    void (*live)(UsersPc& user);
    void (*again)(UsersPc& user);  // what is run again after it
    std::uint64_t stride = 20;
    std::uint64_t least_calls = 30;  // of the process that dies
};

void PrintTo(const SweptStory& story, std::ostream* out) { *out << story.name; }

void RunSwitch(UsersPc& user, const wchar_t* program_switch)
{
    const std::wstring command_line = L"HOLVService.exe " + std::wstring(program_switch);
    user.pc.RunUntilEnd(*user.pc.StartInstalled(user.image.path, command_line));
}

bool IsInstalled(const UsersPc& user) { return user.pc.services.Find(kServiceName) != nullptr; }

bool Runs(UsersPc& user)
{
    const auto service = user.pc.services.Find(kServiceName);
    return service && service->status.dwCurrentState == SERVICE_RUNNING && user.view.service();
}

// Starts the service, if it does not start by itself with a PC that is off.
void Start(UsersPc& user)
{
    if (user.pc.on()) {
        user.pc.services.Start(kServiceName);
    } else {
        user.pc.Boot();
    }
    user.pc.RunFor(1s);
}

// Stops the service, if it still runs. What it could not close it has left open.
void Stop(UsersPc& user)
{
    const Process* const service = user.view.service();
    if (!service) return;
    user.pc.services.Control(kServiceName, SERVICE_CONTROL_STOP);
    user.pc.RunUntil([&] { return !service->running(); }, 1min);
}

void Raise(UsersPc& user, std::initializer_list<int> slots)
{
    for (const int slot : slots) {
        user.view.Raise(slot);
        user.pc.RunFor(1s);
    }
}

void Announce(UsersPc& user, DWORD event, Duration then)
{
    user.pc.announcer.PowerEvent(event);
    user.pc.RunFor(then);
}

void Leave(UsersPc& user)
{
    user.pc.user.Leaves();
    user.pc.sleep.Ask(L"test");
    user.pc.RunFor(1s);
}

void Return(UsersPc& user)
{
    user.pc.sleep.WakeByUser();
    user.pc.user.Works();
    user.pc.RunFor(2min);
}

void EnterDoNotDisturb(UsersPc& user)
{
    Start(user);
    user.Enter("HOLV_DND");
}

// Through all states: normal use, active, idle, do-not-disturb, asleep, normal use, the feature's
// end.
void LiveThroughADay(UsersPc& user)
{
    Start(user);
    Raise(user, {enter_active, enter_idle, enter_dnd});
    Announce(user, PBT_APMSUSPEND, 1s);
    Announce(user, PBT_APMRESUMESUSPEND, 1s);
    Raise(user, {enter_active});
    Stop(user);
}

// The user leaves, and is not back at its end.
void LiveThroughANight(UsersPc& user)
{
    Start(user);
    Leave(user);
    Raise(user, {enter_idle, enter_dnd});
    Announce(user, PBT_APMSUSPEND, 1s);
    Announce(user, PBT_APMRESUMEAUTOMATIC, 5s);
}

// A process has been killed in the night; the next one restores.
void DieAtNight(UsersPc& user)
{
    EnterDoNotDisturb(user);
    user.Kill();
}

void StartAndStop(UsersPc& user)
{
    Start(user);
    Stop(user);
}

void Install(UsersPc& user) { RunSwitch(user, L"-Service"); }
void Remove(UsersPc& user) { RunSwitch(user, L"-UnregServer"); }
void Wait(UsersPc&) {}

constexpr SweptStory kStories[] = {
    {"Installation", Remove, Install, Install},
    {"Removal", EnterDoNotDisturb, Remove, Remove},
    {"Start", Wait, Start, Wait, 20, 100},
    {"Day", Wait, LiveThroughADay, Wait, 20, 1000},
    {"Night", Wait, LiveThroughANight, Wait, 10, 500},
    {"Restoring", DieAtNight, StartAndStop, Wait, 20, 300},
    {"Stop", EnterDoNotDisturb, Stop, Wait},
};

// --- What may fail ---

// What the service cannot do without. Where it fails, the service ends, or hangs at its start and
// has to be ended, and an administrator starts it again.
constexpr std::string_view kNeeded[] = {
    "CoInitialize",           // it hangs at its start, as defined
    "CoRegisterClassObject",  // its message loop ends
    "CoResumeClassObjects",   // the same
    "CreateEventW",           // the state machine's wait fails, and the service ends
    "CreateThread",           // there is no state machine
    "CreateWaitableTimerW",   // as an event
    "GetMessageW",            // its message loop ends
    "GetVersionExW",          // the system counts as too old
    "InitializeCriticalSectionAndSpinCount",
    "RegOpenKeyExW",                  // it finds itself not registered as a service
    "RegQueryValueExW",               // the same
    "RegisterServiceCtrlHandlerExW",  // it hangs at its start, as defined
    "SetServiceStatus",               // it hangs at its start, or its end is not told
    "StartServiceCtrlDispatcherW",    // it is no service
    "WaitForMultipleObjects",         // the state machine ends
};

constexpr std::string_view kNeededToEnd[] = {"SetEvent"};  // the state machine is not told

// An event that cannot be reset is handled over and over, and no time passes on the PC.
constexpr std::string_view kStandsStill = "ResetEvent";

// Where these fail, what the service needs in normal use is missing until its next start. What is
// the user's is still right after it has stopped.
constexpr std::string_view kMissed[] = {
    "GetMute",                           // an endpoint counts as not muted
    "PowerCreateRequest",                // the requests are created once
    "PowerReadACValueIndex",             // both plans' allowance of away mode is written once, from
    "PowerReadDCValueIndex",             //     what is read
    "PowerWriteACValueIndex",            // the same
    "PowerWriteDCValueIndex",            //
    "RegisterPowerSettingNotification",  // it is not told that the user is back
};

struct Failure
{
    std::string function;
    Faults::Fault fault;
};
// One, or two that fail once.
using Failures = std::vector<Failure>;

template <class Names>
bool AnyIn(const Failures& failures, const Names& names)
{
    return std::ranges::any_of(failures, [&](const Failure& failure) {
        return std::ranges::count(names, failure.function) > 0;
    });
}

bool Lies(const Failures& failures) { return failures.front().fault.lie != Lie::none; }
bool GoesOn(const Failures& failures) { return failures.front().fault.count != 1; }

// A value that cannot be read for as long as the service changes it is not known.
bool HidesWhatIsTheUsers(const Failures& failures, const SweptStory& story)
{
    const std::string& function = failures.front().function;
    if (!GoesOn(failures)) return false;
    return function.starts_with("PowerRead") || function == "GetMute" ||
           (function == "PowerGetActiveScheme" && story.live == LiveThroughADay);
}

std::string TextOf(const Failures& failures)
{
    std::string text;
    for (const auto& [function, fault] : failures) {
        text += (text.empty() ? "" : " and ") + function + ", from call " +
                std::to_string(fault.first) + (fault.count == 1 ? " once" : " on") +
                (fault.lie == Lie::pretends ? ", pretends"
                 : fault.lie == Lie::denies ? ", denies"
                                            : "");
    }
    return text;
}

class SweepTest : public ::testing::TestWithParam<SweptStory>
{
protected:
    void SetUp() override
    {
        if (kRunFree) GTEST_SKIP() << "needs a story that makes the same calls each time";
    }

    // Once, on, lying: at the first, the middle and the last call of each function. Then pairs.
    static std::vector<Failures> FailuresOf(const std::map<std::string, std::uint64_t>& calls)
    {
        std::vector<Failures> all;
        for (const Function* f : Function::All()) {
            const auto found = calls.find(f->name());
            if (found == calls.end() || f->failing() == Failing::never) continue;
            const std::uint64_t count = found->second;
            for (const std::uint64_t first : std::set{std::uint64_t{1}, (count + 1) / 2, count}) {
                all.push_back({{f->name(), {.first = first}}});
                if (f->name() == kStandsStill) continue;
                all.push_back({{f->name(), {.first = first, .count = Faults::kAlways}}});
                if (f->role() != Role::acts) continue;
                for (const Lie lie : {Lie::pretends, Lie::denies}) {
                    all.push_back({{f->name(), {.first = first, .lie = lie}}});
                }
            }
        }
        // Neighbours by a stride that shares no divisor with the usual ones, so that two different
        // functions meet.
        const std::size_t singles = all.size();
        for (std::size_t i = 0; i < singles; i += 2) {
            const Failure& one = all[i].front();
            const Failure& other = all[(i + 37) % singles].front();
            if (one.function == other.function || one.fault.count != 1 || other.fault.count != 1 ||
                one.fault.lie != Lie::none || other.fault.lie != Lie::none) {
                continue;
            }
            all.push_back({one, other});
        }
        return all;
    }

    // What the service does when nothing fails, and what the PC is like in normal use after it.
    struct Good
    {
        Good()
        {
            UsersPc user;
            const SweptStory& story = GetParam();
            story.begin(user);
            std::map<std::string, std::uint64_t> before;
            for (const Function* f : Function::All()) before[f->name()] = CallsOf(user, f);
            story.live(user);
            for (const Function* f : Function::All()) {
                const std::uint64_t made = CallsOf(user, f) - before[f->name()];
                if (made > 0) calls[f->name()] = made;
            }
            DoAgain(user);
            Start(user);
            Leave(user);
            Return(user);
            in_normal_use = Find(user.pc);
            EXPECT_EQ(user.State(), "S0_NORMAL");
            Stop(user);
        }
        static std::uint64_t CallsOf(const UsersPc& user, const Function* function)
        {
            return user.pc.faults.CallsOf(function->name());
        }

        std::map<std::string, std::uint64_t> calls;
        Observations in_normal_use;
    };

    // An installation over a service that runs stops it, and the next one installs.
    static void InstallAnew(UsersPc& user)
    {
        Install(user);
        user.pc.RunFor(1s);
        if (!IsInstalled(user)) Install(user);
        EXPECT_TRUE(IsInstalled(user));
    }

    // The user is back, and what the story was to do is done again. A removal removes nothing where
    // the class is not registered, so that it follows an installation. Then the service is there.
    static void DoAgain(UsersPc& user)
    {
        if (!user.pc.on()) user.pc.Boot();
        Return(user);
        // Registered by half, it hangs at its start with the PC.
        if (GetParam().again != Wait && !Runs(user) && user.view.service()) user.Kill();
        if (GetParam().again != Wait) InstallAnew(user);
        GetParam().again(user);
        user.pc.RunFor(1s);
        EXPECT_EQ(IsInstalled(user), GetParam().again != Remove);
        if (!IsInstalled(user)) InstallAnew(user);
    }

    static void ExpectWhatTheStoryComesTo(UsersPc& user, const Failures& failures)
    {
        const auto live = GetParam().live;
        if (live == Start || live == LiveThroughANight) {
            EXPECT_TRUE(Runs(user) || AnyIn(failures, kNeeded)) << "the service does not run";
        } else if (live != Remove && user.view.service()) {
            EXPECT_TRUE(AnyIn(failures, kNeeded) || AnyIn(failures, kNeededToEnd)) << "no end";
            user.Kill();
        }
    }

    static void LiveWith(const Failures& failures, const Good& good)
    {
        SCOPED_TRACE(TextOf(failures));
        UsersPc user;
        GetParam().begin(user);
        for (const auto& [function, fault] : failures) user.pc.faults.Set(function, fault);
        GetParam().live(user);
        user.pc.faults.ClearAll();
        Return(user);
        ExpectWhatTheStoryComesTo(user, failures);
        if (!Runs(user) && user.view.service()) user.Kill();
        DoAgain(user);
        if (!Runs(user)) Start(user);
        Leave(user);
        Return(user);
        // What was done where that was denied, or not done where it was said, is not known.
        const bool known = !Lies(failures) && !HidesWhatIsTheUsers(failures, GetParam());
        const bool all_there = !AnyIn(failures, kMissed);
        if (all_there) {
            EXPECT_EQ(user.State(), "S0_NORMAL");
        }
        if (known && all_there) {
            EXPECT_EQ(Differences(good.in_normal_use, Find(user.pc)), "") << "in normal use";
        }
        Stop(user);
        EXPECT_FALSE(user.view.service()) << "it does not end";
        if (known) {
            EXPECT_EQ(user.Differences(), "") << "after the stop";
        }
    }
};

TEST_P(SweepTest, WhicheverFunctionFailsTheUserFindsThePcAsItWas)
{
    const Good good;
    const std::vector<Failures> failures = FailuresOf(good.calls);
    Sweep(GetParam().stride, failures.size(), [&](std::uint64_t place) {
        if (place > failures.size()) return false;
        LiveWith(failures[place - 1], good);
        return true;
    });
}

// --- What may end it ---

struct Blow
{
    const char* name;
    void (*fall)(Machine& pc, Process& on);
};

constexpr Blow kBlows[] = {
    {"a kill", [](Machine&, Process& on) { on.Terminate(1); }},
    {"a power cut", [](Machine& pc, Process&) { pc.CutPower(); }},
};

TEST_P(SweepTest, ABlowAtAnyCallLeavesNothingBehindAfterTheNextStart)
{
    const SweptStory& story = GetParam();
    for (const Blow& blow : kBlows) {
        SCOPED_TRACE(blow.name);
        Sweep(story.stride, story.least_calls, [&](std::uint64_t call) {
            UsersPc user(DrawnSchedule(), 0);
            user.pc.RunFor(Unwritten::kLazyWrite);
            story.begin(user);
            bool in_story = true, fallen = false;
            const auto fall = [&](Process& on) {
                if (!in_story) return;
                fallen = true;
                blow.fall(user.pc, on);
            };
            // The process that stops, or the next one.
            if (story.live == Stop) {
                const Hold hold(user.pc);
                Process& service = *user.view.service();
                service.AtCall(service.calls() + call, fall);
            } else {
                user.pc.programs.AtCall(user.image.path, call, fall);
            }
            story.live(user);
            in_story = false;
            DoAgain(user);
            if (!Runs(user)) Start(user);
            user.pc.user.Input();
            Raise(user, {enter_s0});
            EXPECT_EQ(user.State(), "S0_NORMAL");
            if (!user.view.service()) {
                ADD_FAILURE() << "it has not started";
                return false;
            }
            user.StopService();
            EXPECT_EQ(user.Differences(), "");
            EXPECT_FALSE(user.HasJournal());
            return fallen;
        });
    }
}

INSTANTIATE_TEST_SUITE_P(Of, SweepTest, ::testing::ValuesIn(kStories),
                         [](const auto& story) { return std::string(story.param.name); });

}  // namespace
