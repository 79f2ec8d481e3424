#include "audio/registered_audio_device.h"

#include "audio/reference.h"
#include "restore/changes.h"
#include "state/never_sleep_state.h"

std::shared_ptr<RegisteredAudioDevice> RegisteredAudioDevice::Make(const wchar_t* id)
{
    std::shared_ptr<RegisteredAudioDevice> entry(new RegisteredAudioDevice(id));
    entry->m_pVolumeCallback.Reset(new CAudioEndpointVolumeCallback(entry));
    return entry;
}

RegisteredAudioDevice::~RegisteredAudioDevice() = default;

bool RegisteredAudioDevice::HasVolumeAndCallback(const wchar_t* function) const
{
    if (!m_pEndpointVolume) {
        Log(4, function, L"RegisterDefaultEndpointVolumeCallback, m_pDefaultDeviceVol is  NULL");
        return false;
    }
    if (!m_pVolumeCallback) {
        Log(4, function, L"RegisterDefaultEndpointVolumeCallback, audioEventCallback is  NULL");
        return false;
    }
    return true;
}

BOOL RegisteredAudioDevice::RegisterEndpointVolumeCallback()
{
    constexpr const wchar_t* kFunction = L"RegisteredAudioDevice::RegisterEndpointVolumeCallback";
    if (!HasVolumeAndCallback(kFunction)) return FALSE;
    const HRESULT hr =
        m_pEndpointVolume.Get()->RegisterControlChangeNotify(m_pVolumeCallback.Get());
    if (FAILED(hr)) {
        Log(4, kFunction,
            L"Unable to register audio control change notification callback, status=0x%x", hr);
        return FALSE;
    }
    Log(6, kFunction, L"Register audio control callback successful");
    return TRUE;
}

BOOL RegisteredAudioDevice::UnregisterEndpointVolumeCallback()
{
    constexpr const wchar_t* kFunction = L"RegisteredAudioDevice::UnregisterEndpointVolumeCallback";
    if (!HasVolumeAndCallback(kFunction)) return FALSE;
    const HRESULT hr =
        m_pEndpointVolume.Get()->UnregisterControlChangeNotify(m_pVolumeCallback.Get());
    if (FAILED(hr)) {
        Log(4, kFunction, L"Unable to unregister the audio mute callback, status=0x%x", hr);
        return FALSE;
    }
    Log(6, kFunction, L"Unregister audio control callback successful");
    return TRUE;
}

void RegisteredAudioDevice::ReleaseEndpointVolume(const wchar_t* function)
{
    OwnedInterface<IAudioEndpointVolume> volume;
    {
        const ScopedLock lock(m_setting);
        volume = std::move(m_pEndpointVolume);
    }
    SafeRelease(volume, function);
}

void RegisteredAudioDevice::ReadMuteState()
{
    BOOL muted = FALSE;
    m_unread = FAILED(m_pEndpointVolume.Get()->GetMute(&muted));
    m_bMuted = MuteStateOfTheUser(m_pwszDeviceId, muted) != FALSE;
}

bool RegisteredAudioDevice::TakeMuteState(BOOL muted)
{
    m_unread = false;
    return m_bMuted.exchange(muted) != muted;
}

HRESULT RegisteredAudioDevice::SetDesiredMuteState(const GUID& context, BOOL& stored, BOOL& desired)
{
    const ScopedLock lock(m_setting);
    if (!m_pEndpointVolume) return S_FALSE;
    if (m_unread) ReadMuteState();
    m_unread = false;  // from now on the state may be the service's own
    stored = m_bMuted;
    desired = CNeverSleepState::GetDesiredMuteState(stored);
    const JournaledChange change = ChangeOfMute(m_pwszDeviceId, *m_pEndpointVolume.Get(), desired);
    const HRESULT hr = m_pEndpointVolume.Get()->SetMute(desired, &context);
    change.Made(SUCCEEDED(hr));
    return SUCCEEDED(hr) ? S_OK : hr;
}
