// The control interface: what each of its members does to the service.

#include <array>

#include "api/agent_features.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/sound/audio.h"
#include "state/activity.h"
#include "state/never_sleep_state.h"
#include "tests/agent_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

class Outer final : public CountedObject<IUnknown, IID_IUnknown, Outer>
{
public:
    HRESULT QueryInterface(REFIID id, void** object) override
    {
        if (IsEqualIID(id, IID_IUnknown)) return CountedObject::QueryInterface(id, object);
        return inner.Get()->QueryInterface(id, object);
    }
    OwnedInterface<IUnknown> inner;
};

TEST_F(AgentTest, AnObjectMayBePartOfAnother)
{
    RunInApartment([&] {
        auto* const outer = new Outer;
        void* refused = outer;
        EXPECT_EQ(HOLVAgentApi::Create(outer, IID_IHOLVAgent, &refused), CLASS_E_NOAGGREGATION);
        EXPECT_EQ(refused, nullptr);
        ASSERT_EQ(HOLVAgentApi::Create(outer, IID_IUnknown,
                                       reinterpret_cast<void**>(outer->inner.Receive())),
                  S_OK);
        {
            OwnedInterface<IHOLVAgent> agent;
            OwnedInterface<IUnknown> identity;
            ASSERT_EQ(
                outer->QueryInterface(IID_IHOLVAgent, reinterpret_cast<void**>(agent.Receive())),
                S_OK);
            agent.Get()->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(identity.Receive()));
            EXPECT_EQ(identity.Get(), outer) << "it is the outer object from every side";
        }
        EXPECT_EQ(module.locks, 1);
        EXPECT_EQ(outer->Release(), 0u);
        EXPECT_EQ(module.locks, 0) << "and goes with it";
    });
}

// --- The features ---

std::string Line(const char* verb, const std::string& name, const char* before,
                 const std::string& word)
{
    return verb + name + before + word;
}

TEST_F(AgentTest, EachFeatureIsStoredLoggedAndReadBack)
{
    const struct
    {
        LONG feature;
        const wchar_t* value_name;
        Setting* setting;
        const char* name;
        const char* on;
        const char* off;
    } cases[] = {
        {0, L"EnableNeverSleep", &g_bEnableNeverSleep, "Holv State", "enabled", "disabled"},
        {1, L"MuteAudio", &g_bMuteAudio, "Mute Audio", "mute", "do not mute"},
        {2, L"EnableDoNotDisturb", &g_bEnableDoNotDisturb, "DND", "enabled", "disabled"},
        {3, L"EnableAppSuspend", &g_bEnableAppSuspend, "App Suspend", "enabled", "disabled"},
        {5, L"TurnOnDisplayOnLync", &g_bTurnOnDisplayOnLync, "Display on Lync", "enabled",
         "disabled"},
        {6, L"DndToS3", &g_bDndToS3, "DND to S3", "enabled", "disabled"},
        {7, L"EnableHOLVOnDc", &g_bEnableHolvOnDC, "Holv on DC", "enabled", "disabled"},
    };
    for (const auto& c : cases) {
        for (const LONG value : {0, 1, 2}) {
            heard.Forget();
            EXPECT_EQ(Client().Call(L"SetNeverSleepParam", {c.feature, value}).Words(), L"ok");
            const std::string word = value == 1 ? c.on : c.off;
            EXPECT_TRUE(Joined(heard.Take()).starts_with(Line("Setting ", c.name, " to ", word)));
            EXPECT_EQ(pc.registry.GetDword(kUserKey, c.value_name), static_cast<DWORD>(value));
            EXPECT_EQ(*c.setting, static_cast<DWORD>(value));
            EXPECT_EQ(Client().Call(L"GetNeverSleepParam", {c.feature}, {VT_I4}).Words(),
                      std::to_wstring(value));
            EXPECT_TRUE(heard.TakeHas(Line("Returning ", c.name, " of ", word)));
        }
    }
    for (const LONG feature : {4, 8, 9, -1}) {
        EXPECT_EQ(Client().Call(L"SetNeverSleepParam", {feature, 1}).Words(), L"ok");
        EXPECT_EQ(Client().Call(L"GetNeverSleepParam", {feature}, {VT_I4}).Words(), L"0");
        const std::string said = Joined(heard.Take());
        const bool none = feature == 9 || feature == -1;
        EXPECT_EQ(said.find("Setting  to ") != said.npos, none) << feature;
        EXPECT_EQ(said.find("Returning  of ") != said.npos, none) << feature;
    }
    pc.power.battery_present = true;
    EXPECT_EQ(Client().Call(L"GetNeverSleepParam", {8}, {VT_I4}).Words(), L"1");
    pc.registry.Set(LR"(HKLM\Software\Microsoft\Communicator\4.0)", L"", {});
    EXPECT_EQ(Client().Call(L"GetNeverSleepParam", {4}, {VT_I4}).Words(), L"1");
}

TEST_F(AgentTest, TheFeatureAsAWholeStartsAndStopsTheStateMachine)
{
    const auto signalled = [] {
        return WaitForSingleObject(g_hGlobalEvents[EVENT_ENTER_S0], 0) == WAIT_OBJECT_0;
    };
    const struct
    {
        DWORD before;
        LONG set;
        bool starts;
        bool stops;
    } cases[] = {{1, 1, false, false},
                 {1, 0, false, true},
                 {0, 1, true, false},
                 {1, 2, true, false},
                 {0, 0, false, false}};
    RunInApartment([&] {
        const GlobalEvents events;
        const OwnedInterface<IHOLVAgent> object = MakeObject();
        for (const auto& c : cases) {
            g_bEnableNeverSleep = c.before;
            CNeverSleepState::m_eSystemState = S0_NORMAL;
            EXPECT_EQ(object.Get()->SetNeverSleepParam(E_HOLV_STATE, c.set), S_OK);
            EXPECT_EQ(signalled(), c.starts) << c.before << c.set;
            EXPECT_EQ(CNeverSleepState::m_eSystemState == HOLV_INIT, c.stops) << c.before << c.set;
            ResetGlobalEvent(EVENT_ENTER_S0);
        }
        CNeverSleepState::m_eSystemState = HOLV_INIT;
    });
}

TEST_F(AgentTest, AChangeThatCannotBeWrittenCountsAllTheSame)
{
    pc.SetClock(*ParseCalendar("2026-03-02 23:00"));
    pc.faults.Set("RegSetValueExW", {.error = ERROR_ACCESS_DENIED, .count = Faults::kAlways});
    EXPECT_EQ(Client().Call(L"SetNeverSleepParam", {1, 1}).Words(), L"ok");
    EXPECT_EQ(Client().Call(L"SetDoNotDisturbTimeInterval", {2000, 10}).Words(), L"ok");
    EXPECT_EQ(g_bMuteAudio, 1u);
    EXPECT_FALSE(pc.registry.GetDword(kUserKey, L"MuteAudio"));
    pc.faults.ClearAll();
    EXPECT_EQ(Client().Call(L"GetDoNotDisturbTimeInterval", {}, {VT_UINT, VT_UINT}).Words(),
              L"2000 10");
    EXPECT_EQ(Client().Call(L"SetDoNotDisturbTimeInterval", {1320, 360}).Words(), L"ok");
    EXPECT_EQ(pc.registry.GetDword(kUserKey, L"DoNotDisturbStart"), 1320u);
    EXPECT_EQ(pc.registry.GetDword(kUserKey, L"DoNotDisturbEnd"), 360u);
    EXPECT_TRUE(heard.Has("SetDoNotDisturbTimeInterval, Start=1320, End=360"));
    EXPECT_TRUE(heard.Has("to fire in 420 minutes")) << "the new hours, at once";
    EXPECT_EQ(Client().Call(L"GetNeverSleepApiVersion", {}, {VT_BSTR}).Words(), L"1,1,70,537");
}

TEST_F(AgentTest, NewHoursAreAFactThatTheReconcilerLooksAt)
{
    RunInApartment([&] {
        const OwnedInterface<IHOLVAgent> object = MakeObject();
        const unsigned facts = Standstill().Seen().facts;
        EXPECT_EQ(object.Get()->SetDoNotDisturbTimeInterval(0, 0), S_OK);
        EXPECT_EQ(Standstill().Seen().facts, facts + 1);
    });
}

TEST_F(AgentTest, NullPlacesArePassedOverOrRefused)
{
    RunInApartment([&] {
        const OwnedInterface<IHOLVAgent> object = MakeObject();
        UINT end = 0;
        EXPECT_EQ(object.Get()->GetDoNotDisturbTimeInterval(nullptr, &end), S_OK);
        EXPECT_EQ(end, g_dwDoNotDisturbEnd);
        heard.Forget();
        EXPECT_EQ(object.Get()->GetNeverSleepParam(E_AUDIO, nullptr), E_INVALIDARG);
        EXPECT_EQ(heard.Said(), Lines{});
        EXPECT_EQ(object.Get()->GetNeverSleepApiVersion(nullptr), E_POINTER);
        pc.faults.Set("SysAllocString", {});
        BSTR version = nullptr;
        EXPECT_EQ(object.Get()->GetNeverSleepApiVersion(&version), E_OUTOFMEMORY);
    });
}

}  // namespace
