// PCs by the kind of sleep they have, S3, Modern Standby or none, and what a sleep that the user
// asks for does to the power requests.

#include "platform/power.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/power/power_plans.h"
#include "platform/virtual/power/sleep.h"
#include "tests/virtual_pc_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

using Phase = SleepState::Phase;

class StandbyTest : public VirtualPcTest
{
protected:
    StandbyTest()
    {
        for (const PowerSource source : {PowerSource::ac, PowerSource::dc}) {
            pc.power.Write(pc.power.active().guid, GUID_ALLOW_AWAYMODE, source, 1);
            pc.power.Write(pc.power.active().guid, GUID_STANDBY_TIMEOUT, source, 600);
        }
        pc.power.Activate(pc.power.active().guid);
    }

    std::shared_ptr<PowerRequest> Require(std::initializer_list<POWER_REQUEST_TYPE> types)
    {
        auto request = pc.power.NewRequest(L"C:\\Film.exe", L"a film");
        for (const POWER_REQUEST_TYPE type : types) pc.power.SetRequest(*request, type);
        return request;
    }

    void Have(bool s3, bool modern)
    {
        pc.power.s3_supported = s3;
        pc.power.modern_standby = modern;
    }

    std::string How() const
    {
        if (pc.sleep.phase() == Phase::asleep) return "asleep";
        if (pc.sleep.stands_by()) return "standby";
        return pc.sleep.away() ? "away" : "awake";
    }
};

TEST_F(StandbyTest, AwayModeIsForPcsWithS3)
{
    const struct
    {
        bool s3, modern;
        bool away_required;
        bool user_asks;  // a program otherwise
        const char* becomes;
    } cases[] = {
        {true, false, true, true, "away"},     {true, false, true, false, "away"},
        {true, false, false, true, "asleep"},  {true, false, false, false, "asleep"},
        {false, false, true, true, "awake"},   {false, false, false, false, "awake"},
        {false, true, true, true, "standby"},  {false, true, true, false, "awake"},
        {false, true, false, true, "standby"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        Have(c.s3, c.modern);
        const auto request = c.away_required ? Require({PowerRequestAwayModeRequired}) : nullptr;
        const bool taken = c.user_asks ? pc.sleep.AskAsUser() : pc.sleep.Ask(L"test");
        EXPECT_EQ(How(), c.becomes);
        EXPECT_EQ(taken, std::string(c.becomes) != "awake");
        EXPECT_EQ(pc.user.display_on(), std::string(c.becomes) == "awake");
        pc.sleep.WakeByUser();
        EXPECT_EQ(How(), "awake");
        EXPECT_TRUE(pc.user.display_on());
    }
}

TEST_F(StandbyTest, ASleepThatTheUserAsksForEndsAllRequestsButThoseForAwayMode)
{
    const auto away = PowerRequestAwayModeRequired;
    const auto system = PowerRequestSystemRequired;
    const auto display = PowerRequestDisplayRequired;
    const auto request = Require({away, system, display});
    EXPECT_TRUE(pc.sleep.AskAsUser());
    EXPECT_EQ(How(), "away");
    EXPECT_TRUE(pc.power.Held(system)) << "away mode is no sleep";
    pc.user.Input();

    const GUID plan = pc.power.active().guid;
    pc.power.Write(plan, GUID_ALLOW_AWAYMODE, PowerSource::ac, 0);
    pc.power.Activate(plan);
    for (const bool user_asks : {false, true}) {
        user_asks ? pc.sleep.AskAsUser() : pc.sleep.Ask(L"test");
        EXPECT_EQ(How(), "asleep");
        pc.sleep.WakeByUser();
        EXPECT_TRUE(pc.power.Held(away));
        EXPECT_EQ(pc.power.Held(system), !user_asks);
        EXPECT_EQ(pc.power.Held(display), !user_asks);
    }
    EXPECT_EQ(pc.power.Listing().find(L"SYSTEM:\nNone.\n") != std::wstring::npos, true);
    EXPECT_TRUE(pc.power.ClearRequest(*request, system)) << "its owner need not know";
    pc.power.SetRequest(*request, system);
    EXPECT_TRUE(pc.power.Held(system)) << "and may require it anew";
}

}  // namespace
