// The power plans as programs read, write and activate them: under which subgroup a setting stands,
// plans that users make, delete and thin out, and a policy that decides in their place.

#include "platform/power.h"
#include "platform/virtual/announcer/announcer.h"
#include "platform/virtual/base/guid.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/power/power_plans.h"
#include "tests/virtual_pc_test.h"

using namespace virtual_pc;

namespace {

constexpr const GUID& kBalanced = GUID_TYPICAL_POWER_SAVINGS;
constexpr const GUID& kSaver = GUID_MAX_POWER_SAVINGS;
constexpr GUID kMine{0x484F4C56, 0x1111, 0x4000, {0x80}};

class PlansTest : public VirtualPcTest
{
protected:
    static DWORD Read(const GUID& plan, const GUID* subgroup, const GUID& setting)
    {
        DWORD value = 0;
        return PowerReadACValueIndex(nullptr, &plan, subgroup, &setting, &value);
    }
    static DWORD Write(const GUID& plan, const GUID* subgroup, const GUID& setting)
    {
        return PowerWriteDCValueIndex(nullptr, &plan, subgroup, &setting, 1);
    }
};

TEST_F(PlansTest, ASettingStandsUnderItsSubgroupOnly)
{
    const GUID* const subgroups[] = {&GUID_SLEEP_SUBGROUP, &GUID_PROCESSOR_SETTINGS_SUBGROUP,
                                     &GUID_VIDEO_SUBGROUP, &GUID_SYSTEM_BUTTON_SUBGROUP,
                                     &NO_SUBGROUP_GUID};
    const struct
    {
        const GUID& setting;
        int subgroup;
    } cases[] = {
        {GUID_STANDBY_TIMEOUT, 0},
        {GUID_ALLOW_RTC_WAKE, 0},
        {GUID_ALLOW_AWAYMODE, 0},
        {GUID_HIBERNATE_FASTS4_POLICY, 0},
        {GUID_PROCESSOR_THROTTLE_MINIMUM, 1},
        {GUID_PROCESSOR_THROTTLE_MAXIMUM, 1},
        {GUID_VIDEO_POWERDOWN_TIMEOUT, 2},
        {GUID_DEVICE_POWER_POLICY_VIDEO_BRIGHTNESS, 2},
        {GUID_POWERBUTTON_ACTION, 3},
        {GUID_LOCK_CONSOLE_ON_WAKE, 4},
        {GUID_ACDC_POWER_SOURCE, -1},
    };
    RunAsProcess([&] {
        for (const auto& c : cases) {
            for (int at = 0; at < 5; ++at) {
                const DWORD expected = at == c.subgroup ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
                EXPECT_EQ(Read(kSaver, subgroups[at], c.setting), expected) << &c - cases << at;
                EXPECT_EQ(Write(kSaver, subgroups[at], c.setting), expected) << &c - cases << at;
            }
        }
        EXPECT_EQ(Read(kSaver, nullptr, GUID_LOCK_CONSOLE_ON_WAKE), DWORD{ERROR_SUCCESS});
    });
}

TEST_F(PlansTest, PlansAreMadeFromOthersDeletedAndThinnedOut)
{
    pc.power.FindPlan(kSaver)->values[GUID_STANDBY_TIMEOUT] = {77, 78};
    PowerPlan& mine = pc.power.AddPlan(L"Mine", kMine, kSaver);
    EXPECT_EQ(mine.values.at(GUID_STANDBY_TIMEOUT).dc, 78u);
    EXPECT_TRUE(pc.power.Activate(kMine));
    EXPECT_EQ(pc.announcer.Present(GUID_POWERSCHEME_PERSONALITY), SettingBytes(kSaver));
    EXPECT_FALSE(pc.power.DeletePlan(kMine)) << "it is active";
    mine.values.erase(GUID_ALLOW_AWAYMODE);
    RunAsProcess([&] {
        EXPECT_EQ(Read(kMine, &GUID_SLEEP_SUBGROUP, GUID_ALLOW_AWAYMODE),
                  DWORD{ERROR_FILE_NOT_FOUND});
        EXPECT_EQ(Read(kSaver, &GUID_SLEEP_SUBGROUP, GUID_ALLOW_AWAYMODE), DWORD{ERROR_SUCCESS});
        EXPECT_EQ(PowerSetActiveScheme(nullptr, &kBalanced), DWORD{ERROR_SUCCESS});
        EXPECT_TRUE(pc.power.DeletePlan(kMine));
        EXPECT_EQ(PowerSetActiveScheme(nullptr, &kMine), DWORD{ERROR_FILE_NOT_FOUND});
        EXPECT_EQ(Write(kMine, &GUID_SLEEP_SUBGROUP, GUID_STANDBY_TIMEOUT),
                  DWORD{ERROR_FILE_NOT_FOUND});
    });
    EXPECT_FALSE(pc.power.DeletePlan(kMine)) << "it is gone";
}

TEST_F(PlansTest, APolicyNamesTheActivePlanAndRefusesEveryOther)
{
    constexpr DWORD kBlockedByPolicy = 1260;
    pc.power.SetPolicy(kSaver);
    const auto active = [] {
        GUID* scheme = nullptr;
        EXPECT_EQ(PowerGetActiveScheme(nullptr, &scheme), DWORD{ERROR_SUCCESS});
        std::wstring guid = FormatGuid(*scheme);
        LocalFree(scheme);
        return guid;
    };
    RunAsProcess([&] {
        EXPECT_EQ(active(), FormatGuid(kSaver));
        EXPECT_EQ(PowerSetActiveScheme(nullptr, &kBalanced), kBlockedByPolicy);
        EXPECT_EQ(Write(kBalanced, &GUID_SLEEP_SUBGROUP, GUID_STANDBY_TIMEOUT),
                  DWORD{ERROR_SUCCESS});
        EXPECT_EQ(active(), FormatGuid(kSaver));
        EXPECT_FALSE(pc.power.Activate(kBalanced)) << "the control panel is refused, too";
        pc.power.EndPolicy();
        EXPECT_EQ(PowerSetActiveScheme(nullptr, &kBalanced), DWORD{ERROR_SUCCESS});
    });
}

}  // namespace
