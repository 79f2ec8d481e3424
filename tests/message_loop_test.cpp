// The message loop on a thread that a runtime library has put into the other kind of apartment: it
// has no window there, and its end must be posted to it all the same.

#include "platform/com.h"
#include "platform/virtual/processes/libraries.h"
#include "tests/service_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

TEST_F(ServiceFixture, RunsAndEndsOnAThreadOfTheOtherApartment)
{
    constexpr auto kChangedMode = static_cast<DWORD>(RPC_E_CHANGED_MODE);
    EXPECT_EQ(service.Run(L"-Service"), 0);
    pc.libraries.resident = {L"mscoree.dll"};
    pc.faults.Set("CoInitialize", {.error = kChangedMode});
    service.Restart();
    EXPECT_EQ(service.State(), "running");
    EXPECT_FALSE(service.heard.Has("InitializeCom failed"));
    service.Stop();
    EXPECT_EQ(service.State(), "stopped");

    pc.faults.Set("CoInitialize", {.error = kChangedMode});
    pc.faults.Set("CreateThread", {.error = 5});
    service.Restart();
    pc.RunFor(1s);
    EXPECT_EQ(service.State(), "stopped") << "it ends itself without a state machine";
}

}  // namespace
