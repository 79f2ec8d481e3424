// The objects of Core Audio, as programs get them.

#include <algorithm>

#include "platform/virtual/com/counted.h"
#include "platform/virtual/core/memory.h"
#include "platform/virtual/sound/audio.h"

using namespace virtual_pc;

namespace {

constexpr auto kNotFound = static_cast<HRESULT>(0x80070490u);
constexpr auto kInvalidated = static_cast<HRESULT>(0x88890004u);  // the endpoint is not active
constexpr float kSilent = -96;                                    // decibels

Function fn_device_query_interface{"IMMDevice::QueryInterface", Failing::hresult};
Function fn_enum_audio_endpoints{"EnumAudioEndpoints", Failing::hresult};
Function fn_get_default_audio_endpoint{"GetDefaultAudioEndpoint", Failing::hresult};
Function fn_get_device{"GetDevice", Failing::hresult};
Function fn_register_endpoint{"RegisterEndpointNotificationCallback", Failing::hresult};
Function fn_unregister_endpoint{"UnregisterEndpointNotificationCallback", Failing::hresult};
Function fn_get_count{"GetCount", Failing::hresult};
Function fn_item{"Item", Failing::hresult};
Function fn_activate{"Activate", Failing::hresult};
Function fn_get_id{"GetId", Failing::hresult};
Function fn_get_state{"GetState", Failing::hresult};
Function fn_get_data_flow{"GetDataFlow", Failing::hresult};
Function fn_register_control{"RegisterControlChangeNotify", Failing::hresult};
Function fn_unregister_control{"UnregisterControlChangeNotify", Failing::hresult};
Function fn_get_channel_count{"GetChannelCount", Failing::hresult};
Function fn_set_volume{"SetMasterVolumeLevelScalar", Failing::hresult};
Function fn_get_volume{"GetMasterVolumeLevelScalar", Failing::hresult};
Function fn_set_mute{"SetMute", Failing::hresult, Role::acts};
Function fn_get_mute{"GetMute", Failing::hresult};

// An object that is not released for the last time inside a callback.
class OfSound : public Counted
{
protected:
    ULONG GiveBack()
    {
        const ULONG left = Counted::Release();
        if (left == 0) {
            Machine::Current().audio.notices.ForbidInCallbacks(
                "an object is released for the last time");
        }
        return left;
    }
};

// An object that belongs to an endpoint; reports list it by the name of the endpoint.
class OfEndpoint : public OfSound
{
public:
    explicit OfEndpoint(const Endpoint& endpoint) : m_whose(endpoint) {}
    std::wstring Name() const override { return m_whose.name(); }

private:
    const Endpoint& m_whose;
};

// --- An endpoint's volume ---

class EndpointVolume final : public OfEndpoint, public IAudioEndpointVolume
{
public:
    explicit EndpointVolume(Endpoint& endpoint) : OfEndpoint(endpoint), m_endpoint(endpoint) {}
    std::string_view Kind() const override { return "endpoint volume"; }

    HRESULT QueryInterface(REFIID id, void** object) override
    {
        return Answer<IAudioEndpointVolume>(id, IID_IAudioEndpointVolume, this, object);
    }
    ULONG AddRef() override { return Counted::AddRef(); }
    ULONG Release() override { return GiveBack(); }

    HRESULT RegisterControlChangeNotify(IAudioEndpointVolumeCallback* callback) override
    {
        if (!callback) return E_POINTER;
        callback->AddRef();
        const HRESULT result = DoRegister(callback);
        if (FAILED(result)) callback->Release();
        return result;
    }

    HRESULT UnregisterControlChangeNotify(IAudioEndpointVolumeCallback* callback) override
    {
        if (!callback) return E_POINTER;
        {
            Operation call(fn_unregister_control);
            call.machine.audio.notices.ForbidInCallbacks("a callback is unregistered");
            if (const HRESULT refused = call.Refused(CheckUsable(call)); FAILED(refused))
                return refused;
            if (!call.machine.audio.notices.Remove(call, this, callback)) return kNotFound;
        }
        callback->Release();
        return S_OK;
    }

    HRESULT GetChannelCount(UINT* count) override
    {
        Operation call(fn_get_channel_count);
        if (const HRESULT refused = Begin(call); FAILED(refused)) return refused;
        *count = 1;
        return S_OK;
    }

    HRESULT SetMasterVolumeLevel(float decibels, const GUID* context) override
    {
        return SetMasterVolumeLevelScalar(1 - decibels / kSilent, context);
    }

    HRESULT SetMasterVolumeLevelScalar(float level, const GUID* context) override
    {
        Operation call(fn_set_volume);
        if (const HRESULT refused = Begin(call); FAILED(refused)) return refused;
        if (level < 0 || level > 1) return E_INVALIDARG;
        m_endpoint.SetVolume(level, context ? *context : GUID_NULL);
        return S_OK;
    }

    HRESULT GetMasterVolumeLevel(float* decibels) override
    {
        const HRESULT result = GetMasterVolumeLevelScalar(decibels);
        if (SUCCEEDED(result)) *decibels = (1 - *decibels) * kSilent;
        return result;
    }

    HRESULT GetMasterVolumeLevelScalar(float* level) override
    {
        Operation call(fn_get_volume);
        if (const HRESULT refused = Begin(call); FAILED(refused)) return refused;
        *level = m_endpoint.Volume();
        return S_OK;
    }

    // Endpoints are mono: the channel volume is the master volume.
    HRESULT SetChannelVolumeLevel(UINT channel, float decibels, const GUID* context) override
    {
        return channel > 0 ? E_INVALIDARG : SetMasterVolumeLevel(decibels, context);
    }
    HRESULT SetChannelVolumeLevelScalar(UINT channel, float level, const GUID* context) override
    {
        return channel > 0 ? E_INVALIDARG : SetMasterVolumeLevelScalar(level, context);
    }
    HRESULT GetChannelVolumeLevel(UINT channel, float* decibels) override
    {
        return channel > 0 ? E_INVALIDARG : GetMasterVolumeLevel(decibels);
    }
    HRESULT GetChannelVolumeLevelScalar(UINT channel, float* level) override
    {
        return channel > 0 ? E_INVALIDARG : GetMasterVolumeLevelScalar(level);
    }

    HRESULT SetMute(BOOL muted, const GUID* context) override
    {
        Operation call(fn_set_mute);
        if (const HRESULT refused = Begin(call); FAILED(refused)) return refused;
        if (call.Pretends()) return S_OK;
        const bool changed = m_endpoint.SetMute(muted, context ? *context : GUID_NULL);
        if (call.Denies()) return static_cast<HRESULT>(call.error());
        return changed ? S_OK : S_FALSE;
    }

    HRESULT GetMute(BOOL* muted) override
    {
        Operation call(fn_get_mute);
        if (const HRESULT refused = Begin(call); FAILED(refused)) return refused;
        *muted = m_endpoint.Muted();
        return S_OK;
    }

private:
    HRESULT Begin(Operation& call) const
    {
        const HRESULT refused = call.Refused(CheckUsable(call));
        if (call.FailsFor(m_endpoint.name())) return static_cast<HRESULT>(call.error());
        return SUCCEEDED(refused) && !m_endpoint.Active() ? kInvalidated : refused;
    }

    HRESULT DoRegister(IAudioEndpointVolumeCallback* callback)
    {
        Operation call(fn_register_control);
        call.machine.audio.notices.ForbidInCallbacks("a callback is registered");
        if (const HRESULT refused = Begin(call); FAILED(refused)) return refused;
        auto registration = std::make_shared<Registration>();
        registration->callback = callback;
        registration->place = this;
        registration->endpoint = &m_endpoint;
        call.machine.audio.notices.Add(call, registration);
        return S_OK;
    }

    Endpoint& m_endpoint;
};

// --- Endpoints, and lists of them ---

class AudioDevice final : public OfEndpoint, public IMMDevice, public IMMEndpoint
{
public:
    explicit AudioDevice(Endpoint& endpoint) : OfEndpoint(endpoint), m_endpoint(endpoint) {}
    std::string_view Kind() const override { return "audio device"; }

    HRESULT QueryInterface(REFIID id, void** object) override
    {
        *object = nullptr;
        {
            Operation call(fn_device_query_interface);
            if (const HRESULT refused = call.Refused(CheckUsable(call)); FAILED(refused))
                return refused;
        }
        if (id == IID_IMMEndpoint) return Answer<IMMEndpoint>(id, id, this, object);
        return Answer<IMMDevice>(id, IID_IMMDevice, this, object);
    }
    ULONG AddRef() override { return Counted::AddRef(); }
    ULONG Release() override { return GiveBack(); }

    HRESULT Activate(REFIID id, DWORD, PROPVARIANT*, void** object) override
    {
        *object = nullptr;
        Operation call(fn_activate);
        if (const HRESULT refused = call.Refused(CheckUsable(call)); FAILED(refused))
            return refused;
        if (id != IID_IAudioEndpointVolume) return E_NOINTERFACE;
        if (!m_endpoint.Active()) return kInvalidated;
        *object =
            static_cast<IAudioEndpointVolume*>(HandOut<EndpointVolume>(call.machine, m_endpoint));
        return S_OK;
    }

    // Not modelled: the service only uses an endpoint's volume.
    HRESULT OpenPropertyStore(DWORD, IPropertyStore**) override { return E_NOTIMPL; }

    HRESULT GetId(LPWSTR* id) override
    {
        *id = nullptr;
        Operation call(fn_get_id);
        if (const HRESULT refused = call.Refused(CheckUsable(call)); FAILED(refused))
            return refused;
        const std::wstring& text = m_endpoint.id();
        const std::size_t size = (text.size() + 1) * sizeof(wchar_t);
        *id = static_cast<wchar_t*>(Allocate(call, size, "task memory"));
        std::ranges::copy(text, *id);
        return S_OK;
    }

    HRESULT GetState(DWORD* state) override
    {
        Operation call(fn_get_state);
        if (const HRESULT refused = call.Refused(CheckUsable(call)); FAILED(refused))
            return refused;
        *state = m_endpoint.State();
        return S_OK;
    }

    HRESULT GetDataFlow(EDataFlow* flow) override
    {
        Operation call(fn_get_data_flow);
        if (const HRESULT refused = call.Refused(CheckUsable(call)); FAILED(refused))
            return refused;
        *flow = m_endpoint.flow();
        return S_OK;
    }

private:
    Endpoint& m_endpoint;
};

class AudioDevices final : public OfSound, public IMMDeviceCollection
{
public:
    explicit AudioDevices(std::vector<Endpoint*> endpoints) : m_endpoints(std::move(endpoints)) {}
    std::string_view Kind() const override { return "collection of audio devices"; }

    HRESULT QueryInterface(REFIID id, void** object) override
    {
        return Answer<IMMDeviceCollection>(id, IID_IMMDeviceCollection, this, object);
    }
    ULONG AddRef() override { return Counted::AddRef(); }
    ULONG Release() override { return GiveBack(); }

    HRESULT GetCount(UINT* count) override
    {
        Operation call(fn_get_count);
        if (const HRESULT refused = call.Refused(CheckUsable(call)); FAILED(refused))
            return refused;
        *count = static_cast<UINT>(m_endpoints.size());
        return S_OK;
    }

    HRESULT Item(UINT index, IMMDevice** device) override
    {
        *device = nullptr;
        Operation call(fn_item);
        if (const HRESULT refused = call.Refused(CheckUsable(call)); FAILED(refused))
            return refused;
        if (index >= m_endpoints.size()) return E_INVALIDARG;
        *device = HandOut<AudioDevice>(call.machine, *m_endpoints[index]);
        return S_OK;
    }

private:
    std::vector<Endpoint*> m_endpoints;
};

// --- The enumerator ---

constexpr DWORD kAllStates = 0xF;

// Whether a text has the form of an endpoint's id: two parts in braces, joined by a dot.
bool LooksLikeAnId(std::wstring_view id)
{
    const std::size_t dot = id.find(L"}.{");
    return id.starts_with(L'{') && id.ends_with(L'}') && dot != id.npos;
}

// It holds no reference to a client: a program keeps its client until it has unregistered it. A
// client is registered with the process, so any enumerator of the process can unregister it.

class Enumerator final : public OfSound, public IMMDeviceEnumerator
{
public:
    std::string_view Kind() const override { return "audio device enumerator"; }

    HRESULT QueryInterface(REFIID id, void** object) override
    {
        return Answer<IMMDeviceEnumerator>(id, IID_IMMDeviceEnumerator, this, object);
    }
    ULONG AddRef() override { return Counted::AddRef(); }
    ULONG Release() override { return GiveBack(); }

    HRESULT EnumAudioEndpoints(EDataFlow flow, DWORD states,
                               IMMDeviceCollection** collection) override
    {
        if (!collection) return E_POINTER;
        *collection = nullptr;
        Operation call(fn_enum_audio_endpoints);
        if (const HRESULT refused = call.Refused(CheckUsable(call)); FAILED(refused))
            return refused;
        if (static_cast<DWORD>(flow) > eAll || (states & ~kAllStates)) return E_INVALIDARG;
        std::vector<Endpoint*> endpoints = call.machine.audio.All();
        std::erase_if(endpoints, [&](const Endpoint* endpoint) {
            return (flow != eAll && endpoint->flow() != flow) || !(endpoint->State() & states);
        });
        *collection = HandOut<AudioDevices>(call.machine, std::move(endpoints));
        return S_OK;
    }

    HRESULT GetDefaultAudioEndpoint(EDataFlow flow, ERole role, IMMDevice** device) override
    {
        if (!device) return E_POINTER;
        *device = nullptr;
        Operation call(fn_get_default_audio_endpoint);
        if (const HRESULT refused = call.Refused(CheckUsable(call)); FAILED(refused))
            return refused;
        if (static_cast<DWORD>(flow) >= eAll || static_cast<DWORD>(role) >= ERole_enum_count)
            return E_INVALIDARG;
        Endpoint* endpoint = call.machine.audio.Default(flow, role);
        if (!endpoint) return kNotFound;
        *device = HandOut<AudioDevice>(call.machine, *endpoint);
        return S_OK;
    }

    HRESULT GetDevice(LPCWSTR id, IMMDevice** device) override
    {
        if (!id || !device) return E_POINTER;
        *device = nullptr;
        Operation call(fn_get_device);
        if (const HRESULT refused = call.Refused(CheckUsable(call)); FAILED(refused))
            return refused;
        Endpoint* endpoint = call.machine.audio.FindById(id);
        if (!endpoint) return LooksLikeAnId(id) ? kNotFound : E_INVALIDARG;
        *device = HandOut<AudioDevice>(call.machine, *endpoint);
        return S_OK;
    }

    HRESULT RegisterEndpointNotificationCallback(IMMNotificationClient* client) override
    {
        return client ? DoRegister(client) : E_POINTER;
    }

    HRESULT UnregisterEndpointNotificationCallback(IMMNotificationClient* client) override
    {
        if (!client) return E_POINTER;
        Operation call(fn_unregister_endpoint);
        call.machine.audio.notices.ForbidInCallbacks("a callback is unregistered");
        if (const HRESULT refused = call.Refused(CheckUsable(call)); FAILED(refused))
            return refused;
        return call.machine.audio.notices.Remove(call, &call.process(), client) ? S_OK : kNotFound;
    }

private:
    HRESULT DoRegister(IMMNotificationClient* client)
    {
        Operation call(fn_register_endpoint);
        call.machine.audio.notices.ForbidInCallbacks("a callback is registered");
        if (const HRESULT refused = call.Refused(CheckUsable(call)); FAILED(refused))
            return refused;
        auto registration = std::make_shared<Registration>();
        registration->client = client;
        registration->place = &call.process();
        call.machine.audio.notices.Add(call, registration);
        return S_OK;
    }
};

}  // namespace

HRESULT virtual_pc::MakeEnumerator(REFIID id, void** object)
{
    // While a process has an enumerator, it gets no other one.
    Enumerator* enumerator = nullptr;
    {
        Machine& machine = Machine::Current();
        const Hold hold(machine);
        const auto known = machine.handles.FindOf<Enumerator>(Thread::Self()->process);
        enumerator = known.get();
        if (known) {
            known->Share();
        } else {
            enumerator = HandOut<Enumerator>(machine);
        }
    }
    const HRESULT result = enumerator->QueryInterface(id, object);
    enumerator->Release();
    return result;
}
