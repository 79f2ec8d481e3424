// Hears of every change of one endpoint's volume or mute state.
#pragma once

#include <memory>

#include "platform/audio.h"
#include "platform/counted_object.h"

class RegisteredAudioDevice;

// Made and owned by its cache entry, which is kept alive while a notification is at work with it.
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
