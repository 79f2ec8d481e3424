// The keeper of the speakers' mute states: in never-sleep mode they are muted as configured, and in
// normal use each gets the user's own choice back.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "audio/notification_client.h"
#include "audio/registered_audio_device.h"
#include "platform/lock.h"
#include "platform/owned.h"

// An object of the class stands for the keeper being there; its data are the process's.
//
// The state machine's thread, the thread of the control interface and Core Audio's threads are in
// here at once. One lock covers the cache, the default id and the enumerator, and is held for
// looking and placing only: whoever uses an entry or the enumerator has a reference of its own. No
// failure goes further than the log and the result.
class CAudioManager
{
public:
    // --- Start and end (audio_manager.cpp) ---

    // Makes the event context and the enumerator; FALSE when there is no enumerator, and then there
    // is nothing to keep. On a thread in the multithreaded apartment.
    static BOOL Initialize();
    // Empties the cache and gives the enumerator back. TRUE.
    static BOOL Uninitialize();

    // Fills the cache with the active endpoints and listens to them, or stops and empties it. Stop
    // waits for the notifications at work, a second at most. When another thread is in the middle
    // of one of Start, Stop and Uninitialize, the new one is left to that thread, which does it
    // next, and the caller does not wait for it.
    static void Start();
    static void Stop();

    // --- The cache (audio_manager.cpp) ---

    // Each takes an endpoint's id, which may be null. Insert and FindOrInsert are TRUE when the
    // endpoint was added; only render endpoints are, twenty at most, and while the keeping is on.
    static BOOL Insert(const wchar_t* id);
    static BOOL FindOrInsert(const wchar_t* id);
    static std::shared_ptr<RegisteredAudioDevice> FindDevicePair(const wchar_t* id);
    static BOOL IsDefaultAudioDevice(const wchar_t* id);
    // Asks which endpoint is the console role's default, remembers it and caches it.
    static BOOL RecordDefaultDeviceId();

    // --- Mute control (mute_control.cpp) ---

    // Gives every known endpoint, or one, the mute state that the current state of the machine asks
    // for. FALSE when the endpoint refuses.
    static void ConfigureAudioDeviceMuteStates();
    static BOOL ConfigureAudioDeviceMuteState(
        const std::shared_ptr<RegisteredAudioDevice>& pRegDevice);

    // What the notifications come to, on Core Audio's threads. An activated endpoint and a new
    // default settle for 1000 ms, on that thread, before anything is set.
    static void OnAudioDeviceActivated(const wchar_t* id);
    static void OnDefaultDeviceChange(const wchar_t* id);
    static BOOL OnAudioDeviceMuteStateChange(
        const std::shared_ptr<RegisteredAudioDevice>& pRegDevice,
        const AUDIO_VOLUME_NOTIFICATION_DATA* pNotify);
    static BOOL OnDefaultAudioDeviceMuteStateChange(
        const std::shared_ptr<RegisteredAudioDevice>& pRegDevice,
        const AUDIO_VOLUME_NOTIFICATION_DATA* pNotify);

private:
    static constexpr std::size_t kSlots = 20;
    using Entry = std::shared_ptr<RegisteredAudioDevice>;

    using Step = void (*)();
    static void Switch(Step step);
    static void DoStart();
    static void DoStop();
    static void DoUninitialize();

    static void CacheAll(IMMDeviceCollection& endpoints, UINT count);
    static bool IsRenderEndpoint(OwnedInterface<IMMDevice>& device);
    static bool OpenEndpoint(RegisteredAudioDevice& entry, IMMDeviceEnumerator& enumerator);
    static bool Place(const Entry& entry);
    static bool HasEmptySlot();
    static void ClearDeviceArray();
    static BOOL RegisterMmClientCallbackEvent();
    static BOOL UnregisterMmClientCallbackEvent();

    // References of the caller's own; empty when there is nothing.
    static OwnedInterface<IMMDeviceEnumerator> Enumerator();
    static Entry At(std::size_t slot);

    static GUID m_guidAudioContext;  // with every mute change that the service makes
    static OwnedInterface<IMMDeviceEnumerator> m_pEnumerator;
    static std::array<Entry, kSlots> m_DeviceArray;
    static std::wstring m_DefaultDeviceId;  // empty for none
    static CMMNotificationClient m_NotificationClient;

    static CriticalSection m_lock;
    static bool m_bKeeping;  // between Start and Stop: entries may be placed
    static bool m_bRegistered;
    static std::vector<Step> m_steps;  // asked for; the first is being done
    // Questions for the default endpoint are numbered: an answer to an older one is not taken once
    // that to a newer one is there.
    static ULONGLONG m_ullAsked;
    static ULONGLONG m_ullAnswered;
};

// An identifier's string form; empty when there is none to be had.
std::wstring GuidText(const GUID& guid);
