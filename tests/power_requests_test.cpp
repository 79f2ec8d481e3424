// The two power requests: what the system holds and what the log says; the battery's state and the
// reasons of a sleep.

#include "log/log.h"
#include "platform/virtual/power/power.h"
#include "power/machine_power.h"
#include "power/never_sleep_away_mode.h"
#include "tests/virtual_pc_test.h"

using namespace virtual_pc;

namespace {

using AwayRequests = CNeverSleepAwayMode;

class PowerRequestsTest : public VirtualPcTest
{
protected:
    PowerRequestsTest()
    {
        g_dwLoggingLevel = 6;
        g_dwLoggingEnabled = kLogToFile;
    }

    // What the log says since the last time it was asked: levels and messages.
    std::string Said() { return Joined(m_log.TakeWithLevels()); }

    struct Step
    {
        BOOL (*operation)();
        BOOL result;
        std::string said;
        bool away, system;  // held afterwards
        const char* fails = nullptr;
    };

    void Take(const std::vector<Step>& steps)
    {
        for (const Step& step : steps) {
            SCOPED_TRACE(::testing::Message() << "step " << &step - steps.data());
            if (step.fails) pc.faults.Set(step.fails, {.error = 5});
            EXPECT_EQ(step.operation(), step.result);
            EXPECT_EQ(Said(), step.said);
            EXPECT_EQ(pc.power.Held(PowerRequestAwayModeRequired), step.away);
            EXPECT_EQ(pc.power.Held(PowerRequestSystemRequired), step.system);
            EXPECT_EQ(AwayRequests::AreBoth(TRUE), step.away && step.system);
            EXPECT_EQ(AwayRequests::AreBoth(FALSE), !step.away && !step.system);
        }
    }

private:
    Heard m_log{pc, Heard::From::log_file};
};

TEST_F(PowerRequestsTest, EachIsHeldOnceAndAFailureLeavesItToBeTriedAgain)
{
    const std::string no_away = "6 No outstanding away mode request to clear, returning.";
    const std::string no_system = "6 No outstanding system reuired request to clear, returning.";
    RunAsProcess([&] {
        Take({
            {AwayRequests::Initialize, TRUE, "", false, false},
            {AwayRequests::DisableAwayMode, TRUE, no_away, false, false},
            {AwayRequests::EnableIdleTimer, TRUE, no_system, false, false},
            {AwayRequests::EnableAwayMode, FALSE, "6 Unable to request AwayMode, GLE=5\n", false,
             false, "PowerSetRequest"},
            {AwayRequests::EnableAwayMode, TRUE, "", true, false},
            {AwayRequests::EnableAwayMode, TRUE,
             "6 Outstanding away mode request exist, returning.", true, false},
            {AwayRequests::DisableIdleTimer, FALSE, "2 Unable to disable idle timer, GLE=5\n", true,
             false, "PowerSetRequest"},
            {AwayRequests::DisableIdleTimer, TRUE, "6 Idle timer is now controlled by HOLV", true,
             true},
            {AwayRequests::DisableIdleTimer, TRUE,
             "6 Outstanding system required request exist, returning.", true, true},
        });
        EXPECT_NE(
            pc.power.Listing().find(L"AWAYMODE:\n[PROCESS] \\Device\\HarddiskVolume1\\Program "
                                    L"Files\\Orbeq\\Holv\\HOLVService.exe\n"
                                    L"Orbeq(R) Holv Technology\n"),
            std::wstring::npos);
        Take({
            {AwayRequests::DisableAwayMode, FALSE, "6 Unable to disable AwayMode, GLE=5\n", true,
             true, "PowerClearRequest"},
            {AwayRequests::DisableAwayMode, TRUE, "", false, true},
            {AwayRequests::DisableAwayMode, TRUE, no_away, false, true},
            {AwayRequests::EnableIdleTimer, FALSE, "2 Unable to enable idle timer, GLE=5\n", false,
             true, "PowerClearRequest"},
            {AwayRequests::EnableIdleTimer, TRUE, "6 Idle timer is now controlled by OS", false,
             false},
            {AwayRequests::EnableIdleTimer, TRUE, no_system, false, false},
        });
        AwayRequests::Uninitialize();
    });
}

TEST_F(PowerRequestsTest, ARequestThatIsMissingIsDoneWithout)
{
    RunAsProcess([&] {
        for (const std::uint64_t nth : {1, 2}) {
            SCOPED_TRACE(nth);
            const bool away = nth == 2;  // is the one that is there
            pc.faults.Set("PowerCreateRequest", {.first = nth});
            Take({{AwayRequests::Initialize, FALSE, "3 Can't create power request, GLE=31\n", false,
                   false},
                  {AwayRequests::EnableAwayMode, TRUE, away ? "" : "6 Did not enable away mode",
                   away, false},
                  {AwayRequests::DisableIdleTimer, TRUE,
                   away ? "" : "6 Idle timer is now controlled by HOLV", away, !away}});
            // Uninitialize clears the held requests, and later calls do nothing.
            AwayRequests::Uninitialize();
            const auto late = away ? AwayRequests::DisableAwayMode : AwayRequests::EnableIdleTimer;
            Take({{late, TRUE, away ? "6 Did not disable away mode" : "", false, false}});
            AwayRequests::Uninitialize();
        }
    });
}

TEST_F(PowerRequestsTest, TheMachineTellsOfItsBatteryAndItsSleep)
{
    const std::string battery = "2 This platform has a battery";
    const std::string none = "2 This platform does not have a battery";
    const std::string s3 = "6 CallNtPowerInformation called, is S3 supported";
    const std::string no_s3 = "6 CallNtPowerInformation called, S3 not supported";
    const struct
    {
        bool battery, short_term, s3;
        const char* fails;
        BOOL has_battery, can_sleep;
        std::string said;
    } cases[] = {
        {true, false, true, "", TRUE, TRUE, battery + s3},
        {true, true, false, "", FALSE, FALSE, none + no_s3},
        {true, false, true, "GetPwrCapabilities", FALSE, TRUE, s3},
        {false, false, true, "CallNtPowerInformation", FALSE, FALSE,
         none + "6 CallNtPowerInformation call failed, assuming S3 not supported"},
    };
    RunAsProcess([&] {
        for (const auto& each : cases) {
            pc.power.battery_present = each.battery;
            pc.power.batteries_short_term = each.short_term;
            pc.power.s3_supported = each.s3;
            pc.faults.Set(each.fails, {});
            EXPECT_EQ(IsBatteryPresent(), each.has_battery);
            EXPECT_EQ(IsS3Available(), each.can_sleep);
            EXPECT_EQ(Said(), each.said);
        }
    });
}

}  // namespace
