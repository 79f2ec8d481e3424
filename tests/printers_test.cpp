// What a reader of a failed expectation sees.

#include "tests/printers.h"

#include <gtest/gtest.h>

#include "state/never_sleep_state.h"
#include "tests/virtual_pc_test.h"

using namespace virtual_pc;

TEST(PrintersTest, StatesGuidsAndTimesAreShownAsPeopleWriteThem)
{
    using testing::PrintToString;
    EXPECT_EQ(PrintToString(HOLV_DND), "HOLV_DND (3)");
    EXPECT_EQ(PrintToString(std::atomic<ESystemState>{HOLV_S3}), "HOLV_S3 (4)");
    EXPECT_EQ(PrintToString(Duration{1500ms}), "1.5 s");
    const GUID balanced = {
        0x381B4222, 0xF694, 0x41F0, {0x96, 0x85, 0xFF, 0x5B, 0xB2, 0x60, 0xDF, 0x2E}};
    EXPECT_EQ(PrintToString(balanced), "381B4222-F694-41F0-9685-FF5BB260DF2E");
}
