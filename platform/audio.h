// Core Audio: endpoints (speakers, microphones), their mute states and volumes, and notifications
// of their changes.
//
// Each interface's operations stand in the order of their slots. They return S_OK or another
// HRESULT. What they return through a pointer is null on failure; the caller releases a reference
// with Release and an id with CoTaskMemFree. Any thread in an apartment may call them.
#pragma once

#include "platform/com.h"

#ifdef _WIN32

#include <endpointvolume.h>
#include <mmdeviceapi.h>

#else

enum EDataFlow
{
    eRender,
    eCapture,
    eAll,
    EDataFlow_enum_count
};

enum ERole
{
    eConsole,
    eMultimedia,
    eCommunications,
    ERole_enum_count
};

#define DEVICE_STATE_ACTIVE 0x1u
#define DEVICE_STATE_DISABLED 0x2u
#define DEVICE_STATE_NOTPRESENT 0x4u
#define DEVICE_STATE_UNPLUGGED 0x8u
#define DEVICE_STATEMASK_ALL 0xFu

struct PROPERTYKEY
{
    GUID fmtid;
    DWORD pid;
};
struct PROPVARIANT;
class IPropertyStore;

struct AUDIO_VOLUME_NOTIFICATION_DATA
{
    GUID guidEventContext;  // of the caller that made the change
    BOOL bMuted;
    float fMasterVolume;  // 0 to 1
    UINT nChannels;
    float afChannelVolumes[1];  // nChannels of them
};
using PAUDIO_VOLUME_NOTIFICATION_DATA = AUDIO_VOLUME_NOTIFICATION_DATA*;

inline constexpr CLSID CLSID_MMDeviceEnumerator{
    0xBCDE0395, 0xE52F, 0x467C, {0x8E, 0x3D, 0xC4, 0x57, 0x92, 0x91, 0x69, 0x2E}};
inline constexpr IID IID_IMMDeviceEnumerator{
    0xA95664D2, 0x9614, 0x4F35, {0xA7, 0x46, 0xDE, 0x8D, 0xB6, 0x36, 0x17, 0xE6}};
inline constexpr IID IID_IMMDeviceCollection{
    0x0BD7A1BE, 0x7A1A, 0x44DB, {0x83, 0x97, 0xCC, 0x53, 0x92, 0x38, 0x7B, 0x5E}};
inline constexpr IID IID_IMMDevice{
    0xD666063F, 0x1587, 0x4E43, {0x81, 0xF1, 0xB9, 0x48, 0xE8, 0x07, 0x36, 0x3F}};
inline constexpr IID IID_IMMEndpoint{
    0x1BE09788, 0x6894, 0x4089, {0x85, 0x86, 0x9A, 0x2A, 0x6C, 0x26, 0x5A, 0xC5}};
inline constexpr IID IID_IMMNotificationClient{
    0x7991EEC9, 0x7E89, 0x4D85, {0x83, 0x90, 0x6C, 0x70, 0x3C, 0xEC, 0x60, 0xC0}};
inline constexpr IID IID_IAudioEndpointVolume{
    0x5CDF2C82, 0x841E, 0x4546, {0x97, 0x22, 0x0C, 0xF7, 0x40, 0x78, 0x22, 0x9A}};
inline constexpr IID IID_IAudioEndpointVolumeCallback{
    0x657804FA, 0xD6AD, 0x4496, {0x8A, 0x60, 0x35, 0x27, 0x52, 0xAF, 0x4F, 0x89}};

// Receives notifications of endpoints. The sound system calls it on threads of its own, several at
// once. An id is valid during the call only.
class IMMNotificationClient : public IUnknown
{
public:
    virtual HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR id, DWORD state) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR id) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR id) = 0;
    // Once for each role. The id is null when the flow has no endpoint left.
    virtual HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow flow, ERole role,
                                                             LPCWSTR id) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR id, PROPERTYKEY key) = 0;

protected:
    ~IMMNotificationClient() = default;
};

// Receives the notifications of one endpoint's volume and mute changes, on a thread of the sound
// system.
class IAudioEndpointVolumeCallback : public IUnknown
{
public:
    virtual HRESULT STDMETHODCALLTYPE OnNotify(PAUDIO_VOLUME_NOTIFICATION_DATA data) = 0;

protected:
    ~IAudioEndpointVolumeCallback() = default;
};

class IMMEndpoint : public IUnknown
{
public:
    virtual HRESULT STDMETHODCALLTYPE GetDataFlow(EDataFlow* flow) = 0;

protected:
    ~IMMEndpoint() = default;
};

class IMMDevice : public IUnknown
{
public:
    // Creates an object that controls the endpoint, like IAudioEndpointVolume. Fails with
    // 0x88890004 while the endpoint is not active.
    virtual HRESULT STDMETHODCALLTYPE Activate(REFIID id, DWORD context, PROPVARIANT* parameters,
                                               void** object) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD access, IPropertyStore** store) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetId(LPWSTR* id) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetState(DWORD* state) = 0;

protected:
    ~IMMDevice() = default;
};

class IMMDeviceCollection : public IUnknown
{
public:
    virtual HRESULT STDMETHODCALLTYPE GetCount(UINT* count) = 0;
    virtual HRESULT STDMETHODCALLTYPE Item(UINT index, IMMDevice** device) = 0;

protected:
    ~IMMDeviceCollection() = default;
};

class IMMDeviceEnumerator : public IUnknown
{
public:
    // The endpoints of a flow whose state is one of `states`, as they are now.
    virtual HRESULT STDMETHODCALLTYPE EnumAudioEndpoints(EDataFlow flow, DWORD states,
                                                         IMMDeviceCollection** collection) = 0;
    // 0x80070490 when the flow has no active endpoint.
    virtual HRESULT STDMETHODCALLTYPE GetDefaultAudioEndpoint(EDataFlow flow, ERole role,
                                                              IMMDevice** device) = 0;
    // The endpoint, in any state; 0x80070490 for an unknown id.
    virtual HRESULT STDMETHODCALLTYPE GetDevice(LPCWSTR id, IMMDevice** device) = 0;
    // Holds a reference to the client until it is unregistered.
    virtual HRESULT STDMETHODCALLTYPE
    RegisterEndpointNotificationCallback(IMMNotificationClient* client) = 0;
    // Waits until no call of the client is running, except one that this call comes from.
    // 0x80070490 for a client that is not registered.
    virtual HRESULT STDMETHODCALLTYPE
    UnregisterEndpointNotificationCallback(IMMNotificationClient* client) = 0;

protected:
    ~IMMDeviceEnumerator() = default;
};

// An endpoint's volume and mute state. Every operation but the unregistration fails with 0x88890004
// while the endpoint is not active. A context identifies the caller of a change in the
// notifications of it; null is the null identifier.
class IAudioEndpointVolume : public IUnknown
{
public:
    // Like the enumerator's registrations, for this callback.
    virtual HRESULT STDMETHODCALLTYPE
    RegisterControlChangeNotify(IAudioEndpointVolumeCallback* callback) = 0;
    virtual HRESULT STDMETHODCALLTYPE
    UnregisterControlChangeNotify(IAudioEndpointVolumeCallback* callback) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetChannelCount(UINT* count) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetMasterVolumeLevel(float decibels, const GUID* context) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetMasterVolumeLevelScalar(float level,
                                                                 const GUID* context) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMasterVolumeLevel(float* decibels) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMasterVolumeLevelScalar(float* level) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetChannelVolumeLevel(UINT channel, float decibels,
                                                            const GUID* context) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetChannelVolumeLevelScalar(UINT channel, float level,
                                                                  const GUID* context) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetChannelVolumeLevel(UINT channel, float* decibels) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetChannelVolumeLevelScalar(UINT channel, float* level) = 0;
    // S_FALSE, without a notification, when the endpoint already has that mute state.
    virtual HRESULT STDMETHODCALLTYPE SetMute(BOOL muted, const GUID* context) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMute(BOOL* muted) = 0;

protected:
    ~IAudioEndpointVolume() = default;
};

#endif
