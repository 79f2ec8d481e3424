// Hears of endpoints that are added, removed, change their state or become the default.
#pragma once

#include "platform/audio.h"
#include "platform/counted_object.h"

// There is one, in static storage; the maker's reference is never given back. Core Audio calls it
// on threads of its own, several at once. What a notification says goes to the log, and those that
// matter go on to CAudioManager, which may hold their thread for a second.
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
