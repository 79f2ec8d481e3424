// CAudioManager's operations side by side, and called as no state of the machine calls them.

#include "audio/audio_manager.h"
#include "platform/virtual/sound/audio.h"
#include "tests/running_service.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

using S = CNeverSleepState;

class AudioManagerTest : public RunningServiceTest
{
protected:
    // Starts an operation on another thread, which is amid its call of `slow` then.
    OwnedHandle Beside(LPTHREAD_START_ROUTINE operation, const char* slow)
    {
        {
            const Hold hold(pc);
            pc.slowness.Set(slow, {.typical = 1s});
        }
        OwnedHandle thread(CreateThread(nullptr, 0, operation, nullptr, 0, nullptr));
        Sleep(10);
        const Hold hold(pc);
        pc.slowness.ClearAll();
        return thread;
    }
};

TEST_F(AudioManagerTest, TheManagersOperationsTakeTurnsAndTellWhatTheyHaveDone)
{
    Endpoint& desk = pc.audio.Add(L"Desk");
    Endpoint& hall = pc.audio.Add(L"Hall");
    hall.MakeDefault(eMultimedia);
    const wchar_t* const id = desk.id().c_str();
    RunAsProcess([&] {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        EXPECT_TRUE(CAudioManager::Initialize());
        EXPECT_FALSE(CAudioManager::Insert(id)) << "there was no start";
        const auto start = [](LPVOID) -> DWORD { return CAudioManager::Start(), 0; };
        const OwnedHandle starting = Beside(start, "EnumAudioEndpoints");
        CAudioManager::Stop();
        WaitForSingleObject(starting.Get(), INFINITE);
        EXPECT_FALSE(CAudioManager::FindDevicePair(id) || CAudioManager::Insert(id))
            << "the stop has not followed the start";
        CAudioManager::Start();
        EXPECT_TRUE(CAudioManager::RecordDefaultDeviceId());
        EXPECT_TRUE(CAudioManager::IsDefaultAudioDevice(id)) << "the console's";
        EXPECT_FALSE(CAudioManager::IsDefaultAudioDevice(nullptr));
        EXPECT_FALSE(CAudioManager::Insert(id)) << "it is cached";
        EXPECT_FALSE(CAudioManager::Insert(nullptr));
        const auto record = [](LPVOID) -> DWORD { return !CAudioManager::RecordDefaultDeviceId(); };
        const OwnedHandle late = Beside(record, "GetId");
        hall.MakeDefault();
        WaitForSingleObject(late.Get(), INFINITE);
        EXPECT_TRUE(CAudioManager::IsDefaultAudioDevice(hall.id().c_str()))
            << "a late answer has replaced a newer one";
        EXPECT_TRUE(CAudioManager::Uninitialize()) << "it stops by itself";
        EXPECT_FALSE(CAudioManager::IsDefaultAudioDevice(hall.id().c_str()));
        EXPECT_FALSE(CAudioManager::RecordDefaultDeviceId());
        CoUninitialize();
    });
}

TEST_F(AudioManagerTest, OfTwoEndpointsThatComeAtOnceOneGetsTheLastSlot)
{
    for (int i = 0; i < 19; ++i) pc.audio.Add(std::to_wstring(i));
    Start();
    pc.slowness.Set("GetDevice", {.typical = 100ms});
    const Endpoint& one = pc.audio.Add(L"One");
    const Endpoint& other = pc.audio.Add(L"Other");
    InService([&] { CAudioManager::Insert(other.id().c_str()); });
    pc.RunFor(1s);
    pc.slowness.ClearAll();
    Go(pc, EVENT_ENTER_DND);
    EXPECT_NE(one.Muted(), other.Muted());
    Stop();
    EXPECT_EQ(heard.Times("SAFE_RELEASE of "), 3 * 21 + 19 + 3)
        << "three of each endpoint, those of the list, the default, the list and the enumerator";
}

TEST_F(AudioManagerTest, AMuteStateThatCouldNotBeReadIsReadAgainUntilItIsKnownOrTheServicesOwn)
{
    Endpoint& desk = pc.audio.Add(L"Desk");
    Set(L"MuteAudio", 1);
    pc.faults.Set("GetMute", {.count = Faults::kAlways});
    Start();
    Go(pc, EVENT_ENTER_ACTIVE);
    EXPECT_TRUE(desk.Muted());
    pc.faults.ClearAll();
    Go(pc, EVENT_ENTER_S0);
    EXPECT_FALSE(desk.Muted()) << "the service's own state is taken for the user's";
    pc.RunFor(10s);
    desk.SetVolume(0.1F);
    pc.faults.Set("GetMute", {});
    Endpoint& phones = pc.audio.Add(L"Phones");
    pc.RunFor(10ms);
    phones.SetMute(true);
    pc.RunFor(10ms);
    InService([] { S::m_ullLastSusResEventTime = GetTickCount64(); });
    phones.SetMute(false);
    pc.RunFor(10ms);
    EXPECT_TRUE(phones.Muted()) << "what the system does on a resume is taken for the user's";
    Stop();
}

}  // namespace
