// Mutes the speakers in never-sleep mode as configured, and in normal use gives each the mute state
// that the user chose.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "audio/notification_client.h"
#include "audio/registered_audio_device.h"
#include "log/log.h"
#include "platform/lock.h"
#include "platform/owned.h"

// All data and operations are static; an object of the class exists while the manager is in use.
//
// The state machine's thread, the control interface's thread and Core Audio's threads call it at
// the same time. One lock guards the cache, the default id and the enumerator. It is held only
// while they are looked up or stored; the threads work with references of their own. Failures are
// logged and returned, nothing more.
class CAudioManager
{
public:
    // --- Start and end (audio_manager.cpp) ---

    // Creates the event context and the device enumerator. FALSE without an enumerator; nothing is
    // cached then. Call on a thread in the multithreaded apartment.
    static BOOL Initialize();
    // Empties the cache and releases the enumerator. Returns TRUE.
    static BOOL Uninitialize();

    // Start caches the active render endpoints and registers for notifications. Stop unregisters
    // and empties the cache; it waits for notifications that are being handled, and a second at
    // most for what they have left to the manager's own thread (audio/sound_thread.h).
    // If another thread is inside Start, Stop or Uninitialize, the call is queued for that thread
    // and returns at once.
    static void Start();
    static void Stop();

    // --- The cache (audio_manager.cpp) ---

    // Each takes an endpoint's id, which may be null. Insert and FindOrInsert return TRUE when they
    // have added the endpoint: only render endpoints are added, at most twenty, and only between
    // Start and Stop.
    static BOOL Insert(const wchar_t* id);
    static BOOL FindOrInsert(const wchar_t* id);
    static std::shared_ptr<RegisteredAudioDevice> FindDevicePair(const wchar_t* id);
    static BOOL IsDefaultAudioDevice(const wchar_t* id);
    // Queries the default render endpoint of the console role, stores its id and caches the
    // endpoint.
    static BOOL RecordDefaultDeviceId();

    // --- Mute control (mute_control.cpp) ---

    // Set every cached endpoint, or one, to the mute state that the current system state requires.
    // FALSE when the endpoint refuses.
    static void ConfigureAudioDeviceMuteStates();
    static BOOL ConfigureAudioDeviceMuteState(
        const std::shared_ptr<RegisteredAudioDevice>& pRegDevice);

    // Handle notifications, on Core Audio's threads, which they do not hold up: what waits until
    // an endpoint has settled, 1000 ms, and what caches an endpoint goes to the manager's own
    // thread.
    static void OnDeviceAdded(const wchar_t* id);
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
    static void RunInTurn(Step step);
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

    // The two halves of RecordDefaultDeviceId: the first looks the endpoint up and stores its id,
    // the second releases the references, of which each may be the last, and caches the endpoint.
    struct DefaultEndpoint
    {
        OwnedInterface<IMMDeviceEnumerator> enumerator;
        OwnedInterface<IMMDevice> device;
        std::wstring id;     // empty for none
        bool found = false;  // whether the look-up succeeded
    };
    static void FindDefaultEndpoint(DefaultEndpoint& endpoint);
    static void CacheDefaultEndpoint(DefaultEndpoint& endpoint);

    // Return a reference for the caller; empty when there is none.
    static OwnedInterface<IMMDeviceEnumerator> Enumerator();
    static Entry At(std::size_t slot);
    // The same as Enumerator; when there is no enumerator, logs `line` under `function`.
    static OwnedInterface<IMMDeviceEnumerator> EnumeratorOrLog(const wchar_t* function,
                                                               FormatFor<> line);

    static GUID m_guidAudioContext;  // marks the mute changes made by the service
    static OwnedInterface<IMMDeviceEnumerator> m_pEnumerator;
    static std::array<Entry, kSlots> m_DeviceArray;
    static std::wstring m_DefaultDeviceId;  // empty for none
    static CMMNotificationClient m_NotificationClient;

    static CriticalSection m_lock;
    static bool m_bStarted;  // between Start and Stop: entries may be cached
    static bool m_bRegistered;
    static std::vector<Step> m_steps;  // queued; the first one is running
    // Queries for the default endpoint are numbered, so that an older answer does not replace a
    // newer one.
    static ULONGLONG m_ullLastQuery;
    static ULONGLONG m_ullLastAnswered;
};

// A GUID's text; empty on failure.
std::wstring GuidText(const GUID& guid);
