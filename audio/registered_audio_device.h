// One cached endpoint.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "audio/endpoint_volume_callback.h"
#include "platform/lock.h"
#include "platform/owned.h"

// Held by shared pointers: the cache may drop an entry while a notification or a state entry still
// uses it.
class RegisteredAudioDevice
{
public:
    // An entry for the endpoint `id`, with its callback but without its endpoint volume.
    static std::shared_ptr<RegisteredAudioDevice> Make(const wchar_t* id);
    ~RegisteredAudioDevice();
    RegisteredAudioDevice(const RegisteredAudioDevice&) = delete;
    RegisteredAudioDevice& operator=(const RegisteredAudioDevice&) = delete;

    // Call only on the thread that made the entry, before it is cached, or that removed it from the
    // cache.
    BOOL RegisterEndpointVolumeCallback();
    // Waits until no call of the callback is running.
    BOOL UnregisterEndpointVolumeCallback();

    // Takes the endpoint's mute state for the user's, unless a process before this one has muted
    // it. If it cannot be read, the endpoint counts as not muted, and the first change of it by the
    // service tries again.
    void ReadMuteState();
    // Stores a state that the user has chosen; returns whether it is another than the one before.
    bool TakeMuteState(BOOL muted);

    // Releases the endpoint volume and logs it under the operation's name. Later calls of
    // SetDesiredMuteState find none.
    void ReleaseEndpointVolume(const wchar_t* function);

    // Sets the mute state that the policy wants (GetDesiredMuteState). Returns it in `desired`, and
    // in `stored` the cached state it was derived from. S_FALSE, without asking the policy, when
    // there is no endpoint volume. Any thread.
    HRESULT SetDesiredMuteState(const GUID& context, BOOL& stored, BOOL& desired);

    std::atomic<BOOL> m_bMuted = FALSE;  // the user's own choice
    const std::wstring m_pwszDeviceId;   // never truncated
    OwnedInterface<IAudioEndpointVolume> m_pEndpointVolume;

private:
    explicit RegisteredAudioDevice(const wchar_t* id) : m_pwszDeviceId(id) {}

    // Whether there is an endpoint volume and a callback to register; logs what is missing.
    bool HasVolumeAndCallback(const wchar_t* function) const;

    std::atomic<bool> m_unread = false;  // the mute state

    // Released, not deleted: if unregistering failed, Core Audio still holds the callback, which
    // then finds no entry.
    OwnedInterface<CAudioEndpointVolumeCallback> m_pVolumeCallback;

    // Held while the desired state is read and set, so that the thread that sets last has also read
    // last, and while the endpoint volume is removed. SetMute neither calls back nor waits for
    // callbacks.
    CriticalSection m_setting;
};
