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

TEST_F(PlansTest, PlansAreMadeFromOthersDeletedAndThinnedOut)
{
    pc.power.FindPlan(kSaver)->values[GUID_STANDBY_TIMEOUT] = {77, 78};
    PowerPlan& mine = pc.power.AddPlan(L"Mine", kMine, kSaver);
    EXPECT_EQ(mine.values.at(GUID_STANDBY_TIMEOUT).dc, 78u);
    EXPECT_TRUE(pc.power.Activate(kMine));
    EXPECT_EQ(pc.announcer.Present(GUID_POWERSCHEME_PERSONALITY), SettingBytes(kSaver));
    pc.power.Write(kMine, GUID_STANDBY_TIMEOUT, PowerSource::ac, 60);
    EXPECT_EQ(pc.power.InForce(GUID_STANDBY_TIMEOUT), 77u) << "until it is activated again";
    pc.power.Activate(kMine);
    EXPECT_EQ(pc.power.InForce(GUID_STANDBY_TIMEOUT), 60u);
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
