// The service's process ends at any call that it makes, in any state, and also while the next one
// restores: after the next start and stop everything is as it was.

#include "tests/users_pc.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

// A day through all states: normal use, active, idle, do-not-disturb, asleep, normal use, the
// feature's end.
void Live(UsersPc& user)
{
    user.TryToStart();
    for (const int slot : {enter_active, enter_idle, enter_dnd}) {
        user.view.Raise(slot);
        user.pc.RunFor(1s);
    }
    user.pc.announcer.PowerEvent(PBT_APMSUSPEND);
    user.pc.RunFor(1s);
    user.pc.announcer.PowerEvent(PBT_APMRESUMESUSPEND);
    user.pc.RunFor(1s);
    user.view.Raise(enter_active);
    user.pc.RunFor(1s);
    if (const Process* service = user.view.service()) {
        user.pc.services.Control(kServiceName, SERVICE_CONTROL_STOP);
        user.pc.RunUntilEnd(*service);
    }
}

// Ends the service's process at its `nth` call of a function.
void CrashAt(UsersPc& user, const std::string& function, std::uint64_t nth)
{
    user.pc.faults.Set(function, {.error = 0xC0000005, .first = nth, .raise = true});
}

// Each function that the day calls, with the number of its calls.
std::map<std::string, std::uint64_t> CallsOfADay()
{
    UsersPc user;
    user.pc.registry.SetDword(kUserKey, L"LoggingEnabled", 0);
    std::map<std::string, std::uint64_t> calls;
    for (const Function* function : Function::All()) {
        if (function->failing() != Failing::never && function->role() != Role::releases) {
            calls[function->name()] = user.pc.faults.CallsOf(function->name());
        }
    }
    Live(user);
    for (auto& [name, count] : calls) count = user.pc.faults.CallsOf(name) - count;
    // The test signals events itself, and must not be what ends.
    calls.erase("SetEvent");
    return calls;
}

struct Moment
{
    std::string function;
    std::uint64_t nth;
};

// A life that is cut short, and then the next start, too. Returns whether the last cut came.
bool CutShort(const Moment& first, const std::optional<Moment>& second = {})
{
    UsersPc user;
    user.crash_is_expected = true;
    user.pc.registry.SetDword(kUserKey, L"LoggingEnabled", 0);
    CrashAt(user, first.function, first.nth);
    Live(user);
    user.pc.faults.ClearAll();
    if (second) {
        CrashAt(user, second->function, second->nth);
        user.TryToStart();
        user.pc.faults.ClearAll();
    }
    const bool cut = user.pc.processes().back()->crashed();
    if (!user.view.service()) user.StartService();
    user.StopService();
    EXPECT_EQ(user.Differences(), "");
    EXPECT_FALSE(user.HasJournal());
    return cut;
}

class CrashSweepTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (kRunFree) GTEST_SKIP() << "needs a day that makes the same calls each time";
    }
};

// Every third call, by the day's seed; all are tried in three days.
TEST_F(CrashSweepTest, AnEndAtAnyCallLeavesNothingBehindAfterTheNextStart)
{
    constexpr std::uint64_t kStride = 3;
    std::uint64_t cuts = 0;
    std::uint64_t tries = 0;
    for (const auto& [function, calls] : CallsOfADay()) {
        for (std::uint64_t nth = 1 + DrawnSchedule().seed % kStride;
             nth <= calls && !testing::Test::HasFailure(); nth += kStride) {
            SCOPED_TRACE(function + " " + std::to_string(nth));
            cuts += CutShort({function, nth});
            ++tries;
        }
    }
    EXPECT_GE(cuts, 100u) << "of " << tries;
}

TEST_F(CrashSweepTest, NeitherDoesASecondEndWhileTheNextStartRestores)
{
    std::uint64_t cuts = 0;
    for (const char* function :
         {"RegGetValueW", "PowerReadACValueIndex", "PowerReadDCValueIndex", "PowerGetActiveScheme",
          "PowerWriteACValueIndex", "PowerWriteDCValueIndex", "PowerSetActiveScheme", "SetMute",
          "DeviceIoControl", "RegSetValueExW", "RegDeleteValueW"}) {
        for (std::uint64_t again = 1; again <= 12 && !testing::Test::HasFailure(); ++again) {
            SCOPED_TRACE(std::string(function) + " " + std::to_string(again));
            cuts += CutShort({"DeviceIoControl", 3}, Moment{function, again});
        }
    }
    EXPECT_GE(cuts, 60u);
}

}  // namespace
