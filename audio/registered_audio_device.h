// One cached endpoint.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "audio/endpoint_volume_callback.h"
#include "platform/lock.h"
#include "platform/owned.h"

// Shared: the cache lets go of an entry while a notification or a state entry may be at work with
// it, and whoever is last destroys it.
class RegisteredAudioDevice
{
public:
    // An entry for the endpoint `id`, with its callback but without its endpoint volume.
    static std::shared_ptr<RegisteredAudioDevice> Make(const wchar_t* id);
    ~RegisteredAudioDevice();
    RegisteredAudioDevice(const RegisteredAudioDevice&) = delete;
    RegisteredAudioDevice& operator=(const RegisteredAudioDevice&) = delete;

    // Only whoever makes the entry, and whoever has taken it out of the cache.
    BOOL RegisterEndpointVolumeCallback();
    // Waits until no notification is at work with the callback.
    BOOL UnregisterEndpointVolumeCallback();

    // Gives the endpoint volume back, and says so under the name of the operation. Whoever comes
    // later finds none.
    void ReleaseEndpointVolume(const wchar_t* function);

    // Asks the policy for the mute state that the endpoint should have, and sets it. S_FALSE when
    // there is no endpoint volume, in which case nothing is asked. Any thread.
    HRESULT SetDesiredMuteState(const GUID& context, BOOL& stored, BOOL& desired);

    std::atomic<BOOL> m_bMuted = FALSE;  // the user's own choice
    const std::wstring m_pwszDeviceId;   // whole, however long it is
    OwnedInterface<IAudioEndpointVolume> m_pEndpointVolume;

private:
    explicit RegisteredAudioDevice(const wchar_t* id) : m_pwszDeviceId(id) {}

    // In the end its reference is given back: a registration that could not be removed keeps its
    // callback, whose entry is gone then.
    OwnedInterface<CAudioEndpointVolumeCallback> m_pVolumeCallback;

    // Held while the endpoint's desired state is asked for and set, so that of two threads the one
    // that sets last has asked last; and for taking the endpoint volume away. Setting a mute state
    // neither calls back nor waits for callbacks.
    CriticalSection m_setting;
};
