// What the sound system forgets, and the service has to register again.

#include "platform/virtual/sound/audio.h"
#include "tests/running_service.h"

using namespace virtual_pc;
using namespace std::chrono_literals;

namespace {

using S = CNeverSleepState;

class SoundLostTest : public RunningServiceTest
{
};

TEST_F(SoundLostTest, AClientThatIsNotRegisteredAnyMoreIsRegisteredAtTheNextStart)
{
    pc.audio.Add(L"Desk");
    Start();
    pc.audio.notices.LoseClients();
    InService([] {
        S::StopNeverSleep();
        S::StartNeverSleep();
    });
    EXPECT_EQ(heard.Times("Unable to unregister default audio device change notification callback"),
              1);
    pc.audio.Add(L"Headset").MakeDefault();
    pc.RunFor(2s);
    EXPECT_GE(heard.Times("OnDefaultDeviceChange"), 1) << "the change is not notified";
    Stop();
}

}  // namespace
