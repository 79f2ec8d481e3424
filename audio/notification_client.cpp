#include "audio/notification_client.h"

#include "audio/audio_manager.h"
#include "log/log.h"

HRESULT CMMNotificationClient::OnDeviceStateChanged(LPCWSTR id, DWORD state)
{
    constexpr const wchar_t* kFunction = L"CMMNotificationClient::OnDeviceStateChanged";
    if (!id) {
        Log(6, kFunction, L"**** OnDeviceStateChanged callback received");
        return S_OK;
    }
    Log(6, kFunction, L"**** OnDeviceStateChanged callback received, deviceID: %s, dwNewState: %d",
        id, state);
    if (state == DEVICE_STATE_ACTIVE) CAudioManager::OnAudioDeviceActivated(id);
    return S_OK;
}

HRESULT CMMNotificationClient::OnDeviceAdded(LPCWSTR id)
{
    constexpr const wchar_t* kFunction = L"CMMNotificationClient::OnDeviceAdded";
    if (!id) {
        Log(6, kFunction, L"**** OnDeviceAdded callback received");
        return S_OK;
    }
    Log(6, kFunction, L"**** OnDeviceAdded callback received, deviceID: %s", id);
    CAudioManager::OnDeviceAdded(id);
    return S_OK;
}

// The endpoint stays cached, in case it comes back.
HRESULT CMMNotificationClient::OnDeviceRemoved(LPCWSTR id)
{
    constexpr const wchar_t* kFunction = L"CMMNotificationClient::OnDeviceRemoved";
    if (id) {
        Log(6, kFunction, L"**** OnDeviceRemoved callback received, deviceID: %s", id);
    } else {
        Log(6, kFunction, L"**** OnDeviceRemoved callback received");
    }
    return S_OK;
}

// Flow and role are ignored; the new default is read from the enumerator.
HRESULT CMMNotificationClient::OnDefaultDeviceChanged(EDataFlow flow, ERole role, LPCWSTR id)
{
    Log(6, L"CMMNotificationClient::OnDefaultDeviceChanged",
        L"**** Default audio device callback received, flow=%d, role=%d, deviceID: %s",
        static_cast<int>(flow), static_cast<int>(role), id ? id : L"[NULL]");
    CAudioManager::OnDefaultDeviceChange(id);
    return S_OK;
}

HRESULT CMMNotificationClient::OnPropertyValueChanged(LPCWSTR id, const PROPERTYKEY)
{
    constexpr const wchar_t* kFunction = L"CMMNotificationClient::OnPropertyValueChanged";
    if (id) {
        Log(6, kFunction, L"**** OnPropertyValueChanged callback received, deviceID: %s", id);
    } else {
        Log(6, kFunction, L"**** OnPropertyValueChanged callback received");
    }
    return S_OK;
}
