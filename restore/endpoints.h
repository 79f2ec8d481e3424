// Internal to restore/: the endpoints whose mute states are restored.
#pragma once

#include <string>

#include "platform/audio.h"
#include "platform/owned.h"

// Enters an apartment and creates the enumerator when the first endpoint is asked for.
class Endpoints
{
public:
    Endpoints() = default;
    ~Endpoints();
    Endpoints(const Endpoints&) = delete;
    Endpoints& operator=(const Endpoints&) = delete;

    // The endpoint's volume; empty when it is not there or not active.
    OwnedInterface<IAudioEndpointVolume> VolumeOf(const std::wstring& id);

private:
    bool m_tried = false;
    bool m_in_apartment = false;
    OwnedInterface<IMMDeviceEnumerator> m_enumerator;
};
