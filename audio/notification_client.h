// Receives Core Audio's notifications of endpoints that are added, removed, change their state or
// become the default.
#pragma once

#include "platform/audio.h"
#include "platform/counted_object.h"

// The one instance lies in static storage; its first reference is never released, so that it is
// never deleted. Core Audio calls it on several threads at once. It logs every notification and
// passes on the relevant ones to CAudioManager.
class CMMNotificationClient final
    : public CountedObject<IMMNotificationClient, IID_IMMNotificationClient, CMMNotificationClient>
{
public:
    HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR id, DWORD state) override;
    HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR id) override;
    HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR id) override;
    HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow flow, ERole role,
                                                     LPCWSTR id) override;
    HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR id, const PROPERTYKEY key) override;
};
