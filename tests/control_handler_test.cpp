// What the service does with each control of the service control manager.

#include <cstring>
#include <map>

#include "platform/com.h"
#include "platform/power.h"
#include "platform/session.h"
#include "platform/virtual/console/outputs.h"
#include "platform/virtual/eventlog/event_log.h"
#include "platform/virtual/power/power.h"
#include "reconciler/facts.h"
#include "service/module.h"
#include "settings/settings_store.h"
#include "tests/service_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

class ControlHandlerTest : public ServiceFixture
{
protected:
    // The log lines that an announcement causes, without times.
    Lines Told(const Announcement& announcement)
    {
        service.heard.Forget();
        bool handled = false;
        pc.announcer.Announce(announcement, [&] { handled = true; });
        pc.RunFor(1ms);
        EXPECT_TRUE(handled);
        Lines said = service.heard.Said("::On");
        for (std::string& line : said) line = line.substr(0, line.find(", Timestamp"));
        return said;
    }

    Lines PowerEvent(DWORD event)
    {
        return Told({.control = SERVICE_CONTROL_POWEREVENT, .event = event});
    }

    Lines Changed(const GUID& setting, std::vector<BYTE> data)
    {
        return Told({.control = SERVICE_CONTROL_POWEREVENT,
                     .event = PBT_POWERSETTINGCHANGE,
                     .setting = setting,
                     .data = std::move(data)});
    }
};

const std::string kPowerEvent = "SERVICE_CONTROL_POWEREVENT";
const std::string kOff = "Holv is disabled, do nothing";

TEST_F(ControlHandlerTest, EveryPowerEventComesToItsHandler)
{
    pc.registry.SetDword(kUserKey, L"EnableNeverSleep", 0);
    service.Start();
    const std::string suspends = "*****System is Suspending*****";
    const std::string attended = "*****System is Resuming [attended]*****";
    const std::string unattended = "*****System is Resuming [unattended]*****";
    const std::map<DWORD, std::string> acted{{PBT_APMSUSPEND, suspends},
                                             {PBT_APMSTANDBY, suspends},
                                             {PBT_APMRESUMESUSPEND, attended},
                                             {PBT_APMRESUMESTANDBY, unattended},
                                             {PBT_APMRESUMEAUTOMATIC, unattended}};
    for (DWORD event = 0; event <= 20; ++event) {
        Lines expected{kPowerEvent};
        if (acted.contains(event)) expected = {kPowerEvent, acted.at(event), kOff};
        EXPECT_EQ(PowerEvent(event), expected) << event;
    }
    EXPECT_EQ(PowerEvent(0x8014), Lines{kPowerEvent});
    pc.services.Control(kService, 200);
    pc.RunFor(1ms);
    EXPECT_EQ(pc.event_log.records().back().strings.at(0), L"Bad service request");
    EXPECT_EQ(pc.outputs.console(), "") << "a service tells the event log alone";
    EXPECT_EQ(PowerEvent(PBT_POWERSETTINGCHANGE), Lines{kPowerEvent}) << "without a record";
    EXPECT_EQ(Told({.control = SERVICE_CONTROL_TIMECHANGE}),
              (Lines{"SERVICE_CONTROL_TIMECHANGE",
                     "Doing nothing for SERVICE_CONTROL_TIMECHANGE "
                     "event as HOLV is disabled.."}));
    EXPECT_EQ(Told({.control = SERVICE_CONTROL_SESSIONCHANGE, .event = 7, .data = {3, 0, 0, 0}}),
              (Lines{"User session change event type: 7", kOff}));
    service.Stop();
}

TEST_F(ControlHandlerTest, EveryPowerSettingComesToItsHandlerWithItsValue)
{
    service.Start();
    pc.RunFor(10s);
    const auto bytes = [](const GUID& guid) { return SettingBytes(guid); };
    const struct
    {
        const GUID& setting;
        std::vector<BYTE> data;
        std::string said;  // after the control itself; empty for nothing
    } cases[] = {
        {GUID_SYSTEM_AWAYMODE, {0, 0, 0, 0}, "**** Awaymode OFF"},
        {GUID_SYSTEM_AWAYMODE, {2, 1, 0, 0}, "**** Awaymode OFF"},
        {GUID_MONITOR_POWER_ON, {1, 7, 0, 0}, "**** Display is ON"},
        {GUID_MONITOR_POWER_ON, {0, 1, 0, 0}, "**** Display is OFF"},
        {GUID_GLOBAL_USER_PRESENCE, {0, 7, 0, 0}, "**** User Present"},
        {GUID_GLOBAL_USER_PRESENCE, {1, 0, 0, 0}, "**** User Not Present"},
        {GUID_GLOBAL_USER_PRESENCE, {2}, "**** User Inactive"},
        {GUID_GLOBAL_USER_PRESENCE, {3, 0, 0, 0}, ""},
        {GUID_ACDC_POWER_SOURCE, {0, 0, 0, 0}, "**** System is on AC power"},
        {GUID_ACDC_POWER_SOURCE, {1, 0, 0, 0}, "**** System is on DC power"},
        {GUID_ACDC_POWER_SOURCE, {0, 1, 0, 0}, "**** System is on DC power"},
        {GUID_STANDBY_TIMEOUT, {0x2C, 1, 0, 0}, "Standby timeout value changed to 300 seconds\n"},
        {GUID_POWERSCHEME_PERSONALITY, bytes(GUID_TYPICAL_POWER_SAVINGS),
         "Power Scheme is Balanced"},
        {GUID_POWERSCHEME_PERSONALITY, bytes(GUID_MIN_POWER_SAVINGS),
         "Power Scheme is Max Performance"},
        {GUID_POWERSCHEME_PERSONALITY, bytes(GUID{}), "Power Scheme is unknown"},
        {GUID_SYSTEM_AWAYMODE, {1, 7, 0, 0}, "**** Awaymode ON"},
    };
    for (const auto& c : cases) {
        Lines said = Changed(c.setting, c.data);
        ASSERT_FALSE(said.empty());
        EXPECT_EQ(said.front(), kPowerEvent);
        const bool found = std::ranges::find(said, c.said) != said.end();
        EXPECT_TRUE(c.said.empty() ? said.size() == 1 : found)
            << c.said << " of " << testing::PrintToString(said);
    }
    pc.RunFor(1s);
    EXPECT_TRUE(service.heard.Has("EnterNeverSleepActiveState exit")) << "away mode was entered";

    // The present values are told at the start, before the state machine has a state.
    service.Stop();
    pc.power.Activate(GUID_TYPICAL_POWER_SAVINGS);
    service.Restart();
    EXPECT_TRUE(service.heard.Has("**** Display is ON"));
    EXPECT_TRUE(service.heard.Has("**** Awaymode OFF"));
    service.Stop();
}

// The reconciler goes by it, and the state that is published.
TEST_F(ControlHandlerTest, WhatIsAnnouncedTellsWhetherTheUserIsThere)
{
    pc.registry.SetDword(kUserKey, L"EnableNeverSleep", 0);
    RunAsProcess([&] {
        RegInit();
        const auto power = [](DWORD event, void* data = nullptr) {
            CNeverSleepModule::OnServiceCtrlHandler(SERVICE_CONTROL_POWEREVENT, event, data,
                                                    nullptr);
            const UserFacts user = KnownUser();
            return std::string(user.present ? "there " : "") + (user.away ? "away " : "") +
                   (user.suspended ? "suspended " : "");
        };
        const auto set = [&](const GUID& setting, BYTE value) {
            std::vector<BYTE> record(24);
            std::memcpy(record.data(), &setting, sizeof(setting));
            record[16] = 4;
            record[20] = value;
            return power(PBT_POWERSETTINGCHANGE, record.data());
        };
        EXPECT_EQ(power(PBT_APMSUSPEND), "suspended ");
        EXPECT_EQ(set(GUID_GLOBAL_USER_PRESENCE, 0), "suspended ");
        EXPECT_EQ(power(PBT_APMRESUMEAUTOMATIC), "");
        EXPECT_EQ(set(GUID_GLOBAL_USER_PRESENCE, 1), "");
        EXPECT_EQ(set(GUID_GLOBAL_USER_PRESENCE, 0), "there ");
        EXPECT_EQ(power(PBT_APMSUSPEND), "suspended ");
        EXPECT_EQ(power(PBT_APMRESUMESUSPEND), "there ");
        EXPECT_EQ(set(GUID_SYSTEM_AWAYMODE, 1), "away ");
        EXPECT_EQ(set(GUID_GLOBAL_USER_PRESENCE, 0), "away ");
        EXPECT_EQ(set(GUID_SYSTEM_AWAYMODE, 0), "there ");

        EXPECT_EQ(power(PBT_APMSUSPEND), "suspended ");
        EXPECT_EQ(power(PBT_APMRESUMEAUTOMATIC), "");
        EXPECT_EQ(set(GUID_MONITOR_POWER_ON, 1), "") << "Windows 8 and later tell the presence";
        CNeverSleepState::m_bIsWindows7 = TRUE;
        EXPECT_EQ(set(GUID_MONITOR_POWER_ON, 0), "");
        EXPECT_EQ(set(GUID_MONITOR_POWER_ON, 1), "there ");
        CNeverSleepState::m_bIsWindows7 = FALSE;
        set({0x11223344, 0x5566, 0x7788, {1, 2, 3, 4, 5, 6, 7, 8}}, 9);
        EXPECT_TRUE(
            service.heard.Has("PowerSetting - data(9), dataLength(4), "
                              "Settings(11223344-5566-7788-807060504030201)\n"));
    });
}

}  // namespace
