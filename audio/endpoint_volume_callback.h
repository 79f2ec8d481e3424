// Receives the notifications of one endpoint's volume and mute changes.
#pragma once

#include <memory>

#include "platform/audio.h"
#include "platform/counted_object.h"

class RegisteredAudioDevice;

// Created and owned by its cache entry. A notification that is being handled keeps the entry alive.
class CAudioEndpointVolumeCallback final
    : public CountedObject<IAudioEndpointVolumeCallback, IID_IAudioEndpointVolumeCallback,
                           CAudioEndpointVolumeCallback>
{
public:
    explicit CAudioEndpointVolumeCallback(std::weak_ptr<RegisteredAudioDevice> owner);

    // On a thread of the sound system. E_INVALIDARG without data, otherwise S_OK.
    HRESULT STDMETHODCALLTYPE OnNotify(PAUDIO_VOLUME_NOTIFICATION_DATA data) override;

private:
    const std::weak_ptr<RegisteredAudioDevice> m_owner;
};
