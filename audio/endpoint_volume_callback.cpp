#include "audio/endpoint_volume_callback.h"

#include "audio/audio_manager.h"
#include "log/log.h"

CAudioEndpointVolumeCallback::CAudioEndpointVolumeCallback(
    std::weak_ptr<RegisteredAudioDevice> owner)
    : m_owner(std::move(owner))
{
}

HRESULT CAudioEndpointVolumeCallback::OnNotify(PAUDIO_VOLUME_NOTIFICATION_DATA data)
{
    Log(6, L"CAudioEndpointVolumeCallback::OnNotify",
        L"**** Audio control callback received, pNotify=%p", data);
    if (!data) return E_INVALIDARG;
    const std::shared_ptr<RegisteredAudioDevice> owner = m_owner.lock();
    if (owner && CAudioManager::IsDefaultAudioDevice(owner->m_pwszDeviceId.c_str())) {
        CAudioManager::OnDefaultAudioDeviceMuteStateChange(owner, data);
    } else {
        CAudioManager::OnAudioDeviceMuteStateChange(owner, data);
    }
    return S_OK;
}
