// CAudioManager, judged by the endpoints' mute states and by its log lines. The scenarios of sound
// tell of endpoints that come, go and are too many.

#include <regex>
#include <set>

#include "audio/audio_manager.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/devices/device.h"
#include "platform/virtual/sound/audio.h"
#include "tests/running_service.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

using S = CNeverSleepState;

class AudioTest : public RunningServiceTest
{
};

// --- The policy ---

enum class Where
{
    init,
    normal,
    active,
    asleep,
};

const struct
{
    Duration after_power;  // since the last power event
    Where where;
    bool away;
    bool by_default;  // the change is on the default endpoint
    bool recorded;
    bool imposed;
} kMuteRows[] = {
    {1h, Where::active, true, true, false, true},
    {1h, Where::normal, true, false, false, true},
    {10s, Where::init, false, true, true, false},  // nothing is stamped: a <= s
    {10s, Where::init, false, false, true, false},
    {4999ms, Where::normal, false, true, false, true},
    {5000ms, Where::normal, false, true, true, false},
    {1h, Where::normal, false, false, false, true},   // no event on the default yet: a <= s
    {0ms, Where::active, false, true, false, false},  // a = s
    {4999ms, Where::active, false, true, false, true},
    {5000ms, Where::active, false, true, false, false},
    {1h, Where::active, false, false, false, false},
    {4999ms, Where::asleep, false, true, false, true},
    {5000ms, Where::asleep, false, true, false, false},
    {1h, Where::asleep, false, false, false, false},
};

// Every row, through a mute change on the default endpoint, which stamps the audio event's time,
// or on another, which leaves it where it was.
TEST_F(AudioTest, AChangeIsTheUsersChoiceOrUndoneAsTheTimesAndTheStateSay)
{
    Endpoint& first = pc.audio.Add(L"First");
    Endpoint& second = pc.audio.Add(L"Second");
    Set(L"MuteAudio", 1);
    for (const auto& row : kMuteRows) {
        SCOPED_TRACE(&row - kMuteRows);
        first.SetMute(true);
        second.SetMute(true);
        Set(L"EnableNeverSleep", row.where != Where::init);
        Start();
        if (row.where == Where::init) InService([] { CAudioManager::Start(); });
        if (row.where == Where::active || row.where == Where::asleep) Go(pc, EVENT_ENTER_ACTIVE);
        if (row.where == Where::asleep) InService([] { S::EnterS3State(); });
        S::m_bInAwayMode = row.away;
        pc.RunFor(1s);
        if (row.where != Where::init)
            InService([] { S::m_ullLastSusResEventTime = GetTickCount64(); });
        pc.RunFor(row.after_power);
        Endpoint& changed = row.by_default ? first : second;
        heard.Forget();
        changed.SetMute(false);
        pc.Settle();
        EXPECT_EQ(heard.Times("updated cache to not muted"), row.recorded);
        EXPECT_EQ(changed.Muted(), row.imposed);
        if (row.where == Where::init) InService([] { CAudioManager::Stop(); });
        Stop();
    }
}

TEST_F(AudioTest, InTheInitialStateAnEventBeforeSwitchingOffStillCounts)
{
    Endpoint& first = pc.audio.Add(L"First");
    for (const bool in_window : {true, false}) {
        first.SetMute(false);
        Start();
        InService([] { S::m_ullLastSusResEventTime = GetTickCount64(); });
        pc.RunFor(in_window ? 4s : 6s);
        first.SetVolume(in_window ? 0.1F : 0.9F);
        pc.Settle();
        InService([] {
            S::StopNeverSleep();
            CAudioManager::Start();
        });
        EXPECT_EQ(S::m_eSystemState, HOLV_INIT);
        heard.Forget();
        first.SetMute(true);
        pc.Settle();
        EXPECT_EQ(heard.Times("updated cache to muted"), 1);
        EXPECT_TRUE(heard.Has("context device is muted"));
        EXPECT_EQ(heard.Times("default case hit"), in_window) << "imposed: what was just recorded";
        Stop();
    }
}

// --- Notifications ---

TEST_F(AudioTest, ANewEndpointIsOpenedAtOnceAndWhatIsLetGoOfIsTold)
{
    pc.audio.Add(L"Desk");
    pc.audio.Add(L"Mic", eCapture);
    Start();
    Stop();
    Lines said = heard.Said("Audio");
    const std::regex address_or_id("[0-9A-Fa-f]{8,}[^ ]*|\\{0[^ ]*");
    for (std::string& line : said) line = std::regex_replace(line, address_or_id, "#");
    EXPECT_LINES(said, BlockOf("audio.txt", "a start and a stop"));
    Start();
    Endpoint& phones = pc.audio.Add(L"Phones", eRender, {.state = DEVICE_STATE_UNPLUGGED});
    pc.Settle();
    phones.MakeDefault();
    phones.SetState(DEVICE_STATE_ACTIVE);
    pc.RunFor(100ms);
    EXPECT_EQ(heard.Times("Caching mute state "), 3) << "the new default has not been cached";
    pc.RunFor(2s);
    EXPECT_EQ(heard.Times("Activate IAudioEndpointVolume failed, hr=0x88890004"), 1);
    Stop();
}

TEST_F(AudioTest, WhatANotificationHasLeftIsDoneBeforeTheFeatureGoesOff)
{
    pc.audio.Add(L"Desk");
    Start();
    Go(pc, EVENT_ENTER_DND);
    Endpoint& phones = pc.audio.Add(L"Phones", eRender, {.state = DEVICE_STATE_UNPLUGGED});
    pc.RunFor(10ms);
    phones.SetState(DEVICE_STATE_ACTIVE);
    pc.RunFor(100ms);
    InService([] { S::StopNeverSleep(); });
    EXPECT_EQ(heard.Said("ClearDeviceArray").size(), 4u) << "both are let go of";
    EXPECT_TRUE(heard.Has("Stored value not muted desired value muted"));
    Stop();
}

TEST_F(AudioTest, AsleepTheSpeakersAreAsTheStateBeforeHasThem)
{
    Endpoint& desk = pc.audio.Add(L"Desk");
    Start();
    Go(pc, EVENT_ENTER_DND);
    InService([] { S::EnterS3State(); });
    desk.SetMute(false);
    InService([] { CAudioManager::ConfigureAudioDeviceMuteStates(); });
    EXPECT_TRUE(desk.Muted());
    Stop();
}

TEST_F(AudioTest, TheCallbackObjectsAnswerForTheirInterfaceAndBadNotificationsAreRefused)
{
    RunAsProcess([] {
        const OwnedInterface<CMMNotificationClient> owned_client(new CMMNotificationClient);
        const OwnedInterface<CAudioEndpointVolumeCallback> owned_callback(
            new CAudioEndpointVolumeCallback({}));
        CMMNotificationClient& client = *owned_client.Get();
        CAudioEndpointVolumeCallback& callback = *owned_callback.Get();
        void* object = nullptr;
        EXPECT_EQ(client.QueryInterface(IID_IMMNotificationClient, &object), S_OK);
        EXPECT_EQ(object, static_cast<IMMNotificationClient*>(&client));
        EXPECT_EQ(client.Release(), 1u);
        // NOLINTBEGIN(clang-analyzer-cplusplus.NewDelete): a reference is left
        EXPECT_EQ(client.QueryInterface(IID_IAudioEndpointVolumeCallback, &object), E_NOINTERFACE);
        EXPECT_EQ(object, nullptr);
        EXPECT_EQ(callback.QueryInterface(IID_IMMNotificationClient, &object), E_NOINTERFACE);
        EXPECT_EQ(callback.QueryInterface(IID_IUnknown, &object), S_OK);
        EXPECT_EQ(callback.Release(), 1u);
        EXPECT_EQ(callback.OnNotify(nullptr), E_INVALIDARG);
        EXPECT_EQ(client.OnDeviceStateChanged(nullptr, DEVICE_STATE_ACTIVE), S_OK);
        EXPECT_EQ(client.OnDeviceAdded(nullptr), S_OK);
        AUDIO_VOLUME_NOTIFICATION_DATA data{};
        const auto device = RegisteredAudioDevice::Make(L"Desk");
        for (const auto handle : {CAudioManager::OnAudioDeviceMuteStateChange,
                                  CAudioManager::OnDefaultAudioDeviceMuteStateChange}) {
            EXPECT_FALSE(handle(device, nullptr));
            EXPECT_TRUE(handle(device, &data));
        }
        EXPECT_FALSE(CAudioManager::OnAudioDeviceMuteStateChange(nullptr, &data));
        data.guidEventContext = IID_IUnknown;
        EXPECT_TRUE(CAudioManager::OnDefaultAudioDeviceMuteStateChange(device, &data));
        EXPECT_FALSE(device->RegisterEndpointVolumeCallback()) << "there is no endpoint volume";
        EXPECT_FALSE(device->UnregisterEndpointVolumeCallback());
        // NOLINTEND(clang-analyzer-cplusplus.NewDelete)
    });
}

TEST_F(AudioTest, AClientThatIsNotRegisteredAnyMoreIsRegisteredAtTheNextStart)
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

// --- Failures ---

// Whichever call of the sound system fails, nothing is left behind and the service goes on.
TEST_F(AudioTest, WhicheverSoundCallFailsNothingIsLeftBehind)
{
    const struct
    {
        std::string function;
        const char* line;
        bool refuses = false;  // the endpoint, at the first attempt
    } calls[] = {
        {"CoCreateGuid", "Unable to create GUID, hr=0x80004005"},
        {"CoInitializeEx", "Unable to create MMDeviceEnumerator, status=0x800401f0, 0 of 5"},
        {"CoCreateInstance", "Unable to create MMDeviceEnumerator, status=0x80004005, 0 of 5"},
        {"UuidToStringW", "Created MMDeviceEnumerator"},
        {"EnumAudioEndpoints", "EnumAudioEndpoints failed, hr=0x80004005"},
        {"GetCount", "GetCount failed, hr=0x80004005"},
        {"Item", "Item 0 of 1 not found"},
        {"GetId", "deviceId is NUL"},
        {"GetDevice", "GetDevice failed, hr=0x80004005", true},
        {"IMMDevice::QueryInterface", "QueryInterface IMMEndpoint on IMMDevice failed", true},
        {"GetDataFlow", "GetDataFlow failed, hr=0x80004005", true},
        {"Activate", "Activate IAudioEndpointVolume failed, hr=0x80004005", true},
        {"GetMute", "Caching mute state not muted"},
        {"RegisterControlChangeNotify", "RegisterEndpointVolumeCallback failed", true},
        {"GetDefaultAudioEndpoint", "GetDefaultAudioEndpoint failed, hr=0x80004005"},
        {"RegisterEndpointNotificationCallback",
         "Unable to register default audio device change notification callback"},
        {"SetMute", "Update attempt failed for index 0"},
    };
    Endpoint& desk = pc.audio.Add(L"Desk");
    for (const auto& [function, line, refuses] : calls) {
        SCOPED_TRACE(function);
        heard.Forget();
        pc.faults.Set(function, {});
        Start();
        EXPECT_GE(heard.Times(line), 1);
        EXPECT_EQ(heard.Times("NOT cached"), refuses);
        desk.SetVolume(desk.Volume() / 2);
        pc.RunFor(10ms);
        EXPECT_EQ(heard.Has("called by our activity"), function == "CoCreateGuid")
            << "a context that is no context";
        Go(pc, EVENT_ENTER_DND);
        Go(pc, EVENT_ENTER_S0);
        EXPECT_FALSE(desk.Muted());
        Stop();
        pc.faults.ClearAll();
    }
}

// Core Audio may still call a registration that could not be removed; the callback then finds no
// entry.
TEST_F(AudioTest, ARegistrationThatCannotBeRemovedDoesNoHarm)
{
    left_open_is_expected = true;
    Endpoint& desk = pc.audio.Add(L"Desk");
    Start();
    pc.faults.Set("UnregisterControlChangeNotify", {});
    pc.faults.Set("UnregisterEndpointNotificationCallback", {});
    desk.SetState(DEVICE_STATE_DISABLED);
    desk.SetState(DEVICE_STATE_ACTIVE);
    pc.RunFor(100ms);
    InService([] { S::StopNeverSleep(); });
    EXPECT_EQ(heard.Times("UNABLE TO UNREGISTER FOR VOLUME CALLBACKS ON CACHED DEVICE 0!!!"), 1);
    pc.RunFor(2s);
    desk.SetMute(true);
    pc.Settle();
    EXPECT_EQ(heard.Times("pRegDevice is NUL"), 1);
    EXPECT_EQ(heard.Times("OnAudioDeviceMuteStateChange entry"), 1) << "one callback is registered";
    Stop();
    std::multiset<std::string> left;
    for (const LeftOpen& open : m_service->left_open()) left.insert(open.kind);
    left.erase("file");
    EXPECT_EQ(left, std::multiset<std::string>{"registration for volume notices"})
        << "the other is removed by the second Stop";
}

// --- Storms ---

DWORD Next(std::uint64_t& random)
{
    random = random * 6364136223846793005u + 1442695040888963407u;
    return static_cast<DWORD>(random >> 33);
}

// One source of changes in the storm: a user, a driver or a program.
DWORD WINAPI Shake(LPVOID parameter)
{
    std::uint64_t random = reinterpret_cast<std::uintptr_t>(parameter);
    Audio& audio = Machine::Current().audio;
    for (int i = 0; i < 12; ++i) {
        const DWORD what = Next(random);
        Endpoint& endpoint = audio.Add(std::to_wstring(what / 16 % 4));
        switch (what % 8) {
            case 0:
                endpoint.Remove();
                break;
            case 1:
                endpoint.SetState(DEVICE_STATE_DISABLED);
                break;
            case 2:
            case 3:
                endpoint.SetState(DEVICE_STATE_ACTIVE);
                break;
            case 4:
                endpoint.MakeDefault();
                break;
            case 5:
                endpoint.SetVolume(static_cast<float>(what % 100) / 100);
                break;
            default:
                endpoint.SetMute(what % 2);
        }
        Sleep(what / 64 % 3 ? what / 256 % 4 : what / 256 % 1500);
    }
    return 0;
}

// Two threads switch the feature at once; the control interface has one.
DWORD WINAPI SwitchFeature(LPVOID parameter)
{
    std::uint64_t random = reinterpret_cast<std::uintptr_t>(parameter);
    for (int i = 0; i < 3; ++i) {
        S::StopNeverSleep();
        Sleep(Next(random) % 700);
        S::StartNeverSleep();
        Sleep(Next(random) % 700);
    }
    return 0;
}

DWORD WINAPI ChangeStates(LPVOID parameter)
{
    std::uint64_t random = reinterpret_cast<std::uintptr_t>(parameter);
    for (int i = 0; i < 8; ++i) {
        const DWORD what = Next(random);
        SignalGlobalEvent(static_cast<GlobalEvent>(what % 4));
        S::m_bInAwayMode = what / 4 % 3 == 0;
        if (what % 5 == 0) S::m_ullLastSusResEventTime = GetTickCount64();
        Sleep(what / 16 % 900);
    }
    return 0;
}

// Waits until every source of changes has finished.
void Shaken(std::uint64_t seed)
{
    const LPTHREAD_START_ROUTINE who[] = {Shake,         Shake,         Shake,
                                          SwitchFeature, SwitchFeature, ChangeStates};
    std::vector<OwnedHandle> threads;
    for (const LPTHREAD_START_ROUTINE one : who) {
        const auto parameter = reinterpret_cast<LPVOID>(seed * 8 + threads.size());
        threads.emplace_back(CreateThread(nullptr, 0, one, parameter, 0, nullptr));
    }
    for (const OwnedHandle& thread : threads) WaitForSingleObject(thread.Get(), INFINITE);
}

void ExpectCalmAfterStorm(Machine& pc, const Machine::Options& life)
{
    const std::uint64_t seed = life.seed;
    pc.registry.SetDword(kUserKey, L"LoggingEnabled", kLogToDebugger);
    pc.registry.SetDword(kUserKey, L"LoggingLevel", seed % 16 == 0 ? 6 : 3);
    pc.registry.SetDword(kUserKey, L"MuteAudio", 1);
    Process& process = pc.Start([seed] { return RunService({}, [seed] { Shaken(seed); }); });
    // Long enough for every thread of the storm and for the notifications that they cause.
    pc.RunFor(2min);
    for (Endpoint* endpoint : pc.audio.All()) {
        if (!endpoint->Active()) endpoint->SetState(DEVICE_STATE_ACTIVE);
    }
    S::m_bInAwayMode = FALSE;
    pc.RunFor(10s);
    const auto expect = [&](const char* when, const std::function<bool(std::size_t)>& muted) {
        const std::vector<Endpoint*> all = pc.audio.All();
        for (std::size_t i = 0; i < all.size(); ++i) {
            EXPECT_EQ(all[i]->Muted(), muted(i)) << when << ", " << ToUtf8(all[i]->name());
        }
    };
    const auto everything = [](std::size_t) { return true; };
    const auto every_second = [](std::size_t i) { return i % 2 == 0; };
    Go(pc, EVENT_ENTER_S0);
    Go(pc, EVENT_ENTER_DND);
    expect("do not disturb", everything);
    Go(pc, EVENT_ENTER_S0);
    // The user's choices, the default's first, so that the others count as later.
    pc.RunFor(10s);
    for (int twice = 0; twice < 2; ++twice) {
        pc.audio.Default(eRender)->SetMute(twice == 0 ? !pc.audio.Default(eRender)->Muted() : true);
        pc.RunFor(1s);
    }
    const std::vector<Endpoint*> all = pc.audio.All();
    for (std::size_t i = 0; i < all.size(); ++i) all[i]->SetMute(every_second(i));
    pc.RunFor(1s);
    Go(pc, EVENT_ENTER_ACTIVE);
    expect("never-sleep mode", everything);
    const std::uint64_t set_before = pc.faults.CallsOf("SetMute");
    Go(pc, EVENT_ENTER_S0);
    expect("the user's choices", every_second);
    EXPECT_EQ(pc.faults.CallsOf("SetMute") - set_before, all.size()) << "each is cached once";
    SignalGlobalEvent(EVENT_SERVICE_STOP);
    EXPECT_TRUE(pc.RunUntil([&] { return !process.running(); }, 1min));
}

TEST(AudioStormTest, WhenItIsOverEveryEndpointHasItsStateAndNothingIsLeft)
{
    StormOnPc({.seeds = 100, .free = 20}, ExpectCalmAfterStorm);
}

}  // namespace
