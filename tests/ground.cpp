// What every test program does around each of its tests.

#include <gtest/gtest.h>

#include <iostream>

#include "tests/fresh_service.h"
#include "tests/seeds.h"

namespace {

class Ground final : public testing::EmptyTestEventListener
{
    // Before the fixture is made, whose constructor may change settings already.
    void OnTestStart(const testing::TestInfo&) override { FreshService(); }
    void OnTestEnd(const testing::TestInfo& test) override
    {
        if (test.result()->Failed()) std::cout << "repeat: " << RepeatCommand() << std::endl;
    }
};

[[maybe_unused]] const bool g_registered = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new Ground);
    return true;
}();

}  // namespace
