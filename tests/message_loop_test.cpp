// The message loop on a thread that a runtime library has put into the other kind of apartment: it
// has no window there, and its end must be posted to it all the same.

#include "api/agent_module.h"
#include "platform/com.h"
#include "platform/module.h"
#include "platform/virtual/processes/libraries.h"
#include "tests/service_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

class MessageLoopTest : public ServiceFixture
{
protected:
    void TheThreadIsInAnotherApartment()
    {
        pc.libraries.resident = {L"mscoree.dll"};
        pc.faults.Set("CoInitialize", {.error = static_cast<DWORD>(RPC_E_CHANGED_MODE)});
    }
};

TEST_F(MessageLoopTest, TheServiceRunsAndEndsAlsoWhereItsStateMachineDoesNotStart)
{
    EXPECT_EQ(service.Run(L"-Service"), 0);
    TheThreadIsInAnotherApartment();
    service.Restart();
    EXPECT_EQ(service.State(), "running");
    EXPECT_FALSE(service.heard.Has("InitializeCom failed"));
    service.Stop();
    EXPECT_EQ(service.State(), "stopped");
    TheThreadIsInAnotherApartment();
    pc.faults.Set("CreateThread", {.error = 5});
    service.Restart();
    pc.RunFor(1s);
    EXPECT_EQ(service.State(), "stopped");
}

TEST_F(MessageLoopTest, AServerEndsThoughItsClientComesAndGoesWhileItStarts)
{
    TheThreadIsInAnotherApartment();
    pc.slowness.Set("CoResumeClassObjects", {.typical = 1s});
    Process& server = pc.Start([] { return wWinMain(nullptr, nullptr, nullptr, 0); });
    pc.RunUntil([&] { return pc.faults.CallsOf("CoResumeClassObjects") > 0; });
    RunAsProcess([] {
        LockAgentModule();
        UnlockAgentModule();
    });
    EXPECT_TRUE(pc.RunUntil([&] { return !server.running(); }, 1min));
}

}  // namespace
