// The audio manager's own thread, which works for the notifications. What these may not do
// themselves, the virtual PC notes as misuse, in every test.

#include "audio/sound_thread.h"
#include "platform/virtual/sound/audio.h"
#include "tests/running_service.h"

using namespace virtual_pc;
using namespace std::chrono_literals;

namespace {

using S = CNeverSleepState;

class SoundThreadTest : public RunningServiceTest
{
protected:
    void FeatureOff()
    {
        InService([] { S::StopNeverSleep(); });
    }
};

// With a single thread of the sound system, a notification that waited would hold up the others.
TEST_F(SoundThreadTest, NotificationsWaitForNoEndpointToSettle)
{
    pc.audio.notices.threads_max = 1;
    Endpoint& desk = pc.audio.Add(L"Desk");
    Endpoint& hall = pc.audio.Add(L"Hall");
    Start();
    pc.RunFor(10s);
    Go(pc, EVENT_ENTER_DND);
    hall.SetMute(false);
    pc.RunFor(10ms);
    EXPECT_FALSE(hall.Muted());
    InService([] { S::m_ullLastSusResEventTime = GetTickCount64(); });
    pc.RunFor(1ms);
    Endpoint& phones = pc.audio.Add(L"Phones", eRender, {.state = DEVICE_STATE_UNPLUGGED});
    phones.SetState(DEVICE_STATE_ACTIVE);
    phones.MakeDefault();
    desk.SetMute(false);
    pc.RunFor(30ms);
    EXPECT_TRUE(desk.Muted()) << "the user's change amid the power event is undone at once";
    EXPECT_GE(heard.Times("OnDefaultDeviceChange called with to"), 1);
    EXPECT_EQ(heard.Times("OnAudioDeviceActivated entry"), 1);
    EXPECT_EQ(heard.Times("OnAudioDeviceActivated exit"), 0);
    pc.RunFor(980ms);
    EXPECT_EQ(heard.Times("OnAudioDeviceActivated exit"), 1);
    EXPECT_TRUE(phones.Muted());
    EXPECT_TRUE(hall.Muted()) << "with the new default, all are set anew";
    std::string order;
    InService([&] {
        SoundThread::Do(0, [] { Sleep(10); });
        SoundThread::Do(0, [&] { order += "the first, "; });
        SoundThread::Do(0, [&] { order += "the second"; });
    });
    pc.RunFor(20ms);
    EXPECT_EQ(order, "the first, the second") << "what comes while the thread is at work waits";
    Stop();
}

TEST_F(SoundThreadTest, AStopWaitsASecondAtMostForACallThatHangs)
{
    pc.audio.Add(L"Desk");
    Start();
    pc.slowness.Set("GetDevice", {.typical = 20s});
    pc.audio.Add(L"Phones");
    pc.RunFor(10ms);
    const Instant asked = pc.now();
    FeatureOff();
    EXPECT_EQ(pc.now() - asked, Duration(1s));
    EXPECT_EQ(heard.Times("has not answered"), 1);
    pc.slowness.ClearAll();
    // The feature may come on again meanwhile; the thread that hung ends by itself.
    InService([] { S::StartNeverSleep(); });
    pc.RunFor(1min);
    Go(pc, EVENT_ENTER_DND);
    EXPECT_TRUE(pc.audio.Find(L"Phones")->Muted());
    Stop();
}

TEST_F(SoundThreadTest, AThreadThatCannotBeStartedIsTriedAgainAndNoWorkIsLost)
{
    Endpoint& desk = pc.audio.Add(L"Desk");
    Start();
    pc.RunFor(10s);
    Go(pc, EVENT_ENTER_DND);
    FeatureOff();
    pc.faults.Set("CreateThread", {.count = pc.faults.kAlways});
    heard.Forget();
    InService([] { S::StartNeverSleep(); });
    const std::string said = Joined(heard.Said());
    EXPECT_LT(said.find("has no thread of its own"),
              said.find("Register default audio device callback successful"))
        << "a notification may come before there is who does what it leaves";
    Go(pc, EVENT_ENTER_DND);
    const auto comes_back = [&] {
        desk.SetState(DEVICE_STATE_DISABLED);
        desk.SetMute(false);
        pc.RunFor(10s);
        desk.SetState(DEVICE_STATE_ACTIVE);
        pc.RunFor(2s);
    };
    comes_back();
    EXPECT_FALSE(desk.Muted());
    EXPECT_EQ(heard.Times("OnAudioDeviceActivated entry"), 1);
    pc.faults.ClearAll();
    comes_back();
    EXPECT_TRUE(desk.Muted());
    EXPECT_EQ(heard.Times("OnAudioDeviceActivated exit"), 2);
    pc.faults.Set("CreateThread", {.count = pc.faults.kAlways});
    InService([] {
        S::StopNeverSleep();
        S::StartNeverSleep();
    });
    comes_back();
    FeatureOff();
    EXPECT_EQ(heard.Times("OnAudioDeviceActivated exit"), 3) << "done by the stop";
    pc.faults.ClearAll();
    Stop();
}

}  // namespace
