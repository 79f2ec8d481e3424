// Each platform function that the service calls in a night fails: once, or from some call on until
// the user is back. After one more leave and return everything is right.

#include "platform/virtual/power/sleep.h"
#include "tests/users_pc.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

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

// A night through all states.
void LiveThroughTheNight(UsersPc& user)
{
    user.TryToStart();
    Leave(user);
    for (const int slot : {enter_idle, enter_dnd}) {
        user.view.Raise(slot);
        user.pc.RunFor(1s);
    }
    user.pc.announcer.PowerEvent(PBT_APMSUSPEND);
    user.pc.RunFor(1s);
    user.pc.announcer.PowerEvent(PBT_APMRESUMEAUTOMATIC);
    user.pc.RunFor(5s);
}

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
    "SetServiceStatus",               // it hangs at its start
    "StartServiceCtrlDispatcherW",    // it is no service
    "WaitForMultipleObjects",         // the state machine ends
};

// An event that cannot be reset is handled over and over, and no time passes on the PC.
constexpr std::string_view kStandsStill = "ResetEvent";

// Stops the service. What it could not close, because that call has failed, it has left open.
void Stop(UsersPc& user)
{
    const Process& service = *user.view.service();
    user.pc.services.Control(kServiceName, SERVICE_CONTROL_STOP);
    EXPECT_TRUE(user.pc.RunUntil([&] { return !service.running(); }, 1min)) << "it does not end";
}

void RunAgain(UsersPc& user, const std::string& failed)
{
    const auto service = user.pc.services.Find(kServiceName);
    if (service->status.dwCurrentState == SERVICE_RUNNING && user.view.service()) return;
    EXPECT_TRUE(std::ranges::count(kNeeded, failed)) << "the service does not run";
    if (user.view.service()) user.Kill();
    user.StartService();
}

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

struct Strike
{
    std::string function;
    Faults::Fault fault;
};

// A value that cannot be read for as long as the service changes it is not known.
bool HidesWhatIsTheUsers(const Strike& strike)
{
    const bool reads = strike.function.starts_with("PowerRead") || strike.function == "GetMute";
    return reads && strike.fault.count != 1;
}

std::string TextOf(const Strike& strike)
{
    return strike.function + ", from call " + std::to_string(strike.fault.first) +
           (strike.fault.count == 1 ? " once" : " on");
}

// What the service does when nothing fails.
struct GoodNight
{
    GoodNight()
    {
        UsersPc user;
        std::map<std::string, std::uint64_t> before;
        for (const Function* f : Function::All()) before[f->name()] = Calls(user, f);
        LiveThroughTheNight(user);
        for (const Function* f : Function::All()) {
            const std::uint64_t calls = Calls(user, f) - before[f->name()];
            if (calls == 0 || f->failing() == Failing::never) continue;
            for (const std::uint64_t first : std::set{std::uint64_t{1}, (calls + 1) / 2, calls}) {
                strikes.push_back({f->name(), {.first = first}});
                if (f->name() == kStandsStill) continue;
                strikes.push_back({f->name(), {.first = first, .count = Faults::kAlways}});
            }
        }
        Return(user);
        in_normal_use = Find(user.pc);
        EXPECT_EQ(user.State(), "S0_NORMAL");
        Stop(user);
    }
    static std::uint64_t Calls(const UsersPc& user, const Function* function)
    {
        return user.pc.faults.CallsOf(function->name());
    }

    std::vector<Strike> strikes;
    Observations in_normal_use;
};

void LiveWith(const Strike& strike, const Observations& in_normal_use)
{
    SCOPED_TRACE(TextOf(strike));
    UsersPc user;
    user.pc.faults.Set(strike.function, strike.fault);
    LiveThroughTheNight(user);
    if (strike.fault.count != 1) user.pc.faults.ClearAll();
    Return(user);
    RunAgain(user, strike.function);
    Leave(user);
    Return(user);
    if (!std::ranges::count(kMissed, strike.function)) {
        EXPECT_EQ(user.State(), "S0_NORMAL");
        EXPECT_EQ(Differences(in_normal_use, Find(user.pc)), "") << "in normal use";
    }
    Stop(user);
    if (!HidesWhatIsTheUsers(strike)) {
        EXPECT_EQ(user.Differences(), "") << "after the stop";
    }
}

TEST(FailureSweepTest, WhicheverFunctionFailsTheUserFindsThePcAsItWas)
{
    if (kRunFree) GTEST_SKIP() << "needs a night that makes the same calls each time";
    const GoodNight good;
    Sweep(10, good.strikes.size(), [&](std::uint64_t place) {
        if (place > good.strikes.size()) return false;
        LiveWith(good.strikes[place - 1], good.in_normal_use);
        return true;
    });
}

}  // namespace
