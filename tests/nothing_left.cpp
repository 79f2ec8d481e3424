#include "platform/virtual/base/text.h"
#include "tests/virtual_pc_test.h"

using virtual_pc::ToUtf8;

std::string LeftOpenBy(const virtual_pc::Process& process)
{
    std::string left_open;
    for (const virtual_pc::LeftOpen& left : process.left_open()) {
        if (left.name.ends_with(LR"(\HOLVLog.txt)")) continue;
        if (left.name.starts_with(LR"(\\.\pipe\ZYTA_HOLV_IP1)")) continue;
        left_open += left.kind + " " + ToUtf8(left.name) + ", ";
    }
    return left_open;
}

void ExpectNothingLeft(const virtual_pc::Machine& pc, bool but_for_what_is_open,
                       bool but_for_crashes)
{
    for (const auto& process : pc.processes()) {
        SCOPED_TRACE("process " + ToUtf8(process->path()));
        EXPECT_FALSE(process->running()) << "it still runs at the end";
        EXPECT_FALSE(process->crashed() && !but_for_crashes) << "it ended by an exception";
        if (!but_for_what_is_open) {
            EXPECT_EQ(LeftOpenBy(*process), "") << "left open";
        }
    }
    for (const std::string& misuse : pc.misuses()) ADD_FAILURE() << "misuse: " << misuse;
}
