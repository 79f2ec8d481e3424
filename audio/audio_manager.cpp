// The endpoint cache, and how it is started and stopped.

#include "audio/audio_manager.h"

#include <algorithm>

#include "audio/reference.h"
#include "audio/sound_thread.h"

GUID CAudioManager::m_guidAudioContext{};
OwnedInterface<IMMDeviceEnumerator> CAudioManager::m_pEnumerator;
std::array<CAudioManager::Entry, CAudioManager::kSlots> CAudioManager::m_DeviceArray;
std::wstring CAudioManager::m_DefaultDeviceId;
CMMNotificationClient CAudioManager::m_NotificationClient;
CriticalSection CAudioManager::m_lock;
bool CAudioManager::m_bStarted = false;
bool CAudioManager::m_bRegistered = false;
std::vector<CAudioManager::Step> CAudioManager::m_steps;
ULONGLONG CAudioManager::m_ullLastQuery = 0;
ULONGLONG CAudioManager::m_ullLastAnswered = 0;

std::wstring GuidText(const GUID& guid)
{
    OwnedRpcString text;
    UUID uuid = guid;  // some SDKs take a pointer to a non-const one
    if (UuidToStringW(&uuid, text.Receive()) != RPC_S_OK || !text) return {};
    return reinterpret_cast<const wchar_t*>(text.Get());
}

OwnedInterface<IMMDeviceEnumerator> CAudioManager::Enumerator()
{
    const ScopedLock lock(m_lock);
    if (m_pEnumerator) m_pEnumerator.Get()->AddRef();
    return OwnedInterface<IMMDeviceEnumerator>(m_pEnumerator.Get());
}

OwnedInterface<IMMDeviceEnumerator> CAudioManager::EnumeratorOrLog(const wchar_t* function,
                                                                   FormatFor<> line)
{
    OwnedInterface<IMMDeviceEnumerator> enumerator = Enumerator();
    if (!enumerator) Log(6, function, line);
    return enumerator;
}

CAudioManager::Entry CAudioManager::At(std::size_t slot)
{
    const ScopedLock lock(m_lock);
    return m_DeviceArray[slot];
}

// --- Start and end ---

BOOL CAudioManager::Initialize()
{
    constexpr const wchar_t* kFunction = L"CAudioManager::Initialize";
    HRESULT hr = CoCreateGuid(&m_guidAudioContext);
    if (FAILED(hr)) {
        m_guidAudioContext = {};
        Log(3, kFunction, L"Unable to create GUID, hr=0x%x\n", hr);
    }
    if (const std::wstring text = GuidText(m_guidAudioContext); !text.empty()) {
        Log(6, kFunction, L"Volume state changes from us will have audio context %s", text.c_str());
    }
    OwnedInterface<IMMDeviceEnumerator> enumerator;
    hr = CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_INPROC_SERVER,
                          IID_IMMDeviceEnumerator, ReceiveAny(enumerator));
    const bool made = SUCCEEDED(hr) && enumerator;
    {
        const ScopedLock lock(m_lock);
        m_DefaultDeviceId.clear();
        std::swap(m_pEnumerator, enumerator);
    }
    if (made) {
        Log(6, kFunction, L"Created MMDeviceEnumerator");
        return TRUE;
    }
    constexpr int kAttempt = 0;
    constexpr int kAttempts = 5;
    Log(4, kFunction, L"Unable to create MMDeviceEnumerator, status=0x%x, %d of %d attempts\n", hr,
        kAttempt, kAttempts);
    return FALSE;
}

BOOL CAudioManager::Uninitialize()
{
    RunInTurn(DoUninitialize);
    return TRUE;
}
void CAudioManager::Start() { RunInTurn(DoStart); }
void CAudioManager::Stop() { RunInTurn(DoStop); }

// Runs the steps of Start, Stop and Uninitialize one after the other, without holding the lock:
// they call Core Audio, which waits for notifications that may need the lock. The caller that finds
// the queue empty runs its own step and then all that other threads have queued meanwhile. Any
// other caller only queues its step.
void CAudioManager::RunInTurn(Step step)
{
    {
        const ScopedLock lock(m_lock);
        m_steps.push_back(step);
        if (m_steps.size() > 1) return;
    }
    for (bool more = true; more;) {
        step();
        const ScopedLock lock(m_lock);
        m_steps.erase(m_steps.begin());
        more = !m_steps.empty();
        if (more) step = m_steps.front();
    }
}

void CAudioManager::DoStart()
{
    constexpr const wchar_t* kFunction = L"CAudioManager::Start";
    const OwnedInterface<IMMDeviceEnumerator> enumerator =
        EnumeratorOrLog(kFunction, L"m_pEnumerator is NULL");
    if (!enumerator) return;
    {
        const ScopedLock lock(m_lock);
        m_bStarted = true;
    }
    OwnedInterface<IMMDeviceCollection> endpoints;
    HRESULT hr =
        enumerator.Get()->EnumAudioEndpoints(eAll, DEVICE_STATE_ACTIVE, endpoints.Receive());
    if (FAILED(hr)) {
        Log(4, kFunction, L"EnumAudioEndpoints failed, hr=0x%x", hr);
        return;
    }
    if (!endpoints) {
        Log(4, kFunction, L"pCollection is NULL");
        return;
    }
    UINT count = 0;
    hr = endpoints.Get()->GetCount(&count);
    if (FAILED(hr)) {
        Log(4, kFunction, L"GetCount failed, hr=0x%x", hr);
    } else if (count == 0) {
        Log(6, kFunction, L"No endpoints found");
    } else {
        CacheAll(*endpoints.Get(), count);
        RecordDefaultDeviceId();
    }
    SoundThread::Start();
    RegisterMmClientCallbackEvent();
    SafeRelease(endpoints, kFunction);
}

// The collection also holds capture endpoints; FindOrInsert refuses them.
void CAudioManager::CacheAll(IMMDeviceCollection& endpoints, UINT count)
{
    constexpr const wchar_t* kFunction = L"CAudioManager::Start";
    for (UINT i = 0; i < count; ++i) {
        OwnedInterface<IMMDevice> device;
        const HRESULT hr = endpoints.Item(i, device.Receive());
        if (FAILED(hr)) Log(4, kFunction, L"Item failed, hr=0x%x", hr);
        if (!device) {
            Log(6, kFunction, L"Item %d of %d not found", i, count);
            continue;
        }
        OwnedTaskString id;
        device.Get()->GetId(id.Receive());
        if (!FindOrInsert(id.Get()) && id) Log(6, kFunction, L"Device %s NOT cached", id.Get());
        SafeRelease(device, kFunction);
    }
}

void CAudioManager::DoStop()
{
    UnregisterMmClientCallbackEvent();
    SoundThread::End();
    ClearDeviceArray();
}

void CAudioManager::DoUninitialize()
{
    constexpr const wchar_t* kFunction = L"CAudioManager::Uninitialize";
    bool started = false;
    {
        const ScopedLock lock(m_lock);
        started = m_bStarted;
    }
    // The control interface's thread may have called Start after the state machine's last Stop.
    if (started) {
        DoStop();
    } else {
        ClearDeviceArray();
    }
    OwnedInterface<IMMDeviceEnumerator> enumerator;
    {
        const ScopedLock lock(m_lock);
        m_DefaultDeviceId.clear();
        std::swap(m_pEnumerator, enumerator);
    }
    const ULONG left = SafeRelease(enumerator, kFunction);
    Log(6, kFunction, L"Deleted current audio device enumerator, Release returned %d", left);
}

// Registers once: a single Stop could not remove two registrations.
BOOL CAudioManager::RegisterMmClientCallbackEvent()
{
    constexpr const wchar_t* kFunction = L"CAudioManager::RegisterMmClientCallbackEvent";
    const OwnedInterface<IMMDeviceEnumerator> enumerator =
        EnumeratorOrLog(kFunction, L"RegisterMmClientCallbackEvent m_pEnumerator is NULL");
    if (!enumerator) return FALSE;
    if (!m_bRegistered) {
        const HRESULT hr =
            enumerator.Get()->RegisterEndpointNotificationCallback(&m_NotificationClient);
        if (FAILED(hr)) {
            Log(4, kFunction,
                L"Unable to register default audio device change notification callback, "
                L"status=0x%x",
                hr);
            return FALSE;
        }
        m_bRegistered = true;
    }
    Log(6, kFunction, L"Register default audio device callback successful");
    return TRUE;
}

BOOL CAudioManager::UnregisterMmClientCallbackEvent()
{
    constexpr const wchar_t* kFunction = L"CAudioManager::UnregisterMmClientCallbackEvent";
    const OwnedInterface<IMMDeviceEnumerator> enumerator =
        EnumeratorOrLog(kFunction, L"UnRegisterMmClientCallbackEvent m_pEnumerator is NULL");
    if (!enumerator) return FALSE;
    const HRESULT hr =
        enumerator.Get()->UnregisterEndpointNotificationCallback(&m_NotificationClient);
    // Where Core Audio does not know the client any more, the next Start has to register it again.
    constexpr auto kNotRegistered = static_cast<HRESULT>(0x80070490u);
    if (SUCCEEDED(hr) || hr == kNotRegistered) m_bRegistered = false;
    if (FAILED(hr)) {
        Log(4, kFunction,
            L"Unable to unregister default audio device change notification callback, status=0x%x",
            hr);
        return FALSE;
    }
    Log(6, kFunction, L"Unregister default audio device callback successful");
    return TRUE;
}

// --- The cache ---

bool CAudioManager::HasEmptySlot()
{
    const ScopedLock lock(m_lock);
    return std::ranges::find(m_DeviceArray, nullptr) != m_DeviceArray.end();
}

// Puts an entry into the first empty slot. False when there is none, when a Stop came while the
// entry was made, or when another thread has cached the endpoint meanwhile.
bool CAudioManager::Place(const Entry& entry)
{
    const ScopedLock lock(m_lock);
    if (!m_bStarted) return false;
    for (Entry& slot : m_DeviceArray) {
        if (slot && slot->m_pwszDeviceId == entry->m_pwszDeviceId) return false;
    }
    const auto slot = std::ranges::find(m_DeviceArray, nullptr);
    if (slot == m_DeviceArray.end()) return false;
    *slot = entry;
    return true;
}

// Whether a device is not a capture endpoint. A device whose flow is capture or unreadable is
// released here.
bool CAudioManager::IsRenderEndpoint(OwnedInterface<IMMDevice>& device)
{
    constexpr const wchar_t* kFunction = L"CAudioManager::Insert";
    OwnedInterface<IMMEndpoint> endpoint;
    HRESULT hr = device.Get()->QueryInterface(IID_IMMEndpoint, ReceiveAny(endpoint));
    if (FAILED(hr) || !endpoint) {
        Log(4, kFunction, L"QueryInterface IMMEndpoint on IMMDevice failed, hr=0x%x", hr);
        return false;
    }
    EDataFlow flow = eRender;
    hr = endpoint.Get()->GetDataFlow(&flow);
    if (FAILED(hr)) {
        Log(4, kFunction, L"GetDataFlow failed, hr=0x%x", hr);
    } else if (flow == eCapture) {
        Log(4, kFunction, L"This device is a mic, do nothing, will not insert into cache");
    }
    const bool renders = SUCCEEDED(hr) && flow != eCapture;
    if (!renders) SafeRelease(device, kFunction);
    SafeRelease(endpoint, kFunction);
    return renders;
}

// Gives the entry the endpoint volume of a render endpoint. False when the entry has none.
bool CAudioManager::OpenEndpoint(RegisteredAudioDevice& entry, IMMDeviceEnumerator& enumerator)
{
    constexpr const wchar_t* kFunction = L"CAudioManager::Insert";
    OwnedInterface<IMMDevice> device;
    HRESULT hr = enumerator.GetDevice(entry.m_pwszDeviceId.c_str(), device.Receive());
    if (FAILED(hr) || !device) {
        Log(4, kFunction, L"GetDevice failed, hr=0x%x", hr);
        return false;
    }
    if (IsRenderEndpoint(device)) {
        hr = device.Get()->Activate(IID_IAudioEndpointVolume, CLSCTX_ALL, nullptr,
                                    ReceiveAny(entry.m_pEndpointVolume));
        if (FAILED(hr) || !entry.m_pEndpointVolume) {
            Log(4, kFunction, L"Activate IAudioEndpointVolume failed, hr=0x%x", hr);
        }
    }
    SafeRelease(device, kFunction);
    return static_cast<bool>(entry.m_pEndpointVolume);
}

BOOL CAudioManager::Insert(const wchar_t* id)
{
    constexpr const wchar_t* kFunction = L"CAudioManager::Insert";
    const OwnedInterface<IMMDeviceEnumerator> enumerator = Enumerator();
    if (!enumerator || !id) return FALSE;
    Log(6, kFunction, L"Attempting to insert %s into cache", id);
    if (!HasEmptySlot()) return FALSE;
    const Entry entry = RegisteredAudioDevice::Make(id);
    if (!OpenEndpoint(*entry, *enumerator.Get())) return FALSE;
    entry->ReadMuteState();
    Log(6, kFunction, L"Caching mute state %s", entry->m_bMuted ? L"muted" : L"not muted");
    const bool registered = entry->RegisterEndpointVolumeCallback() != FALSE;
    if (!registered) Log(4, kFunction, L"RegisterEndpointVolumeCallback failed");
    if (registered && Place(entry)) return TRUE;
    if (registered) entry->UnregisterEndpointVolumeCallback();
    entry->ReleaseEndpointVolume(kFunction);
    return FALSE;
}

BOOL CAudioManager::FindOrInsert(const wchar_t* id)
{
    return FindDevicePair(id) ? FALSE : Insert(id);
}

std::shared_ptr<RegisteredAudioDevice> CAudioManager::FindDevicePair(const wchar_t* id)
{
    constexpr const wchar_t* kFunction = L"CAudioManager::FindDevicePair";
    Log(6, kFunction, L"FindDevicePair entry");
    if (!id) {
        Log(6, kFunction, L"deviceId is NULL");
        Log(6, kFunction, L"FindDevicePair exit");
        return nullptr;
    }
    for (std::size_t slot = 0; slot < kSlots; ++slot) {
        Entry entry = At(slot);
        if (!entry || entry->m_pwszDeviceId != id) continue;
        Log(6, kFunction, L"deviceId %s found at index %d", id, static_cast<int>(slot));
        return entry;
    }
    Log(6, kFunction, L"deviceId %s not found", id);
    Log(6, kFunction, L"FindDevicePair exit");
    return nullptr;
}

BOOL CAudioManager::IsDefaultAudioDevice(const wchar_t* id)
{
    std::wstring default_id;
    {
        const ScopedLock lock(m_lock);
        default_id = m_DefaultDeviceId;
    }
    if (!id || default_id.empty()) return FALSE;
    Log(6, L"CAudioManager::IsDefaultAudioDevice", L"this audio device %s, default audio device %s",
        id, default_id.c_str());
    return default_id == id;
}

BOOL CAudioManager::RecordDefaultDeviceId()
{
    DefaultEndpoint endpoint;
    FindDefaultEndpoint(endpoint);
    if (!endpoint.found) return FALSE;
    CacheDefaultEndpoint(endpoint);
    return TRUE;
}

void CAudioManager::FindDefaultEndpoint(DefaultEndpoint& endpoint)
{
    constexpr const wchar_t* kFunction = L"CAudioManager::RecordDefaultDeviceId";
    endpoint.enumerator = Enumerator();
    if (!endpoint.enumerator) return;
    ULONGLONG query = 0;
    {
        const ScopedLock lock(m_lock);
        query = ++m_ullLastQuery;
    }
    const HRESULT hr = endpoint.enumerator.Get()->GetDefaultAudioEndpoint(
        eRender, eConsole, endpoint.device.Receive());
    if (FAILED(hr)) return Log(4, kFunction, L"GetDefaultAudioEndpoint failed, hr=0x%x", hr);
    endpoint.found = true;
    OwnedTaskString id;
    if (endpoint.device) {
        endpoint.device.Get()->GetId(id.Receive());
        if (!id) Log(4, kFunction, L"Unable to record default deviceId string");
    }
    {
        const ScopedLock lock(m_lock);
        if (endpoint.device && query > m_ullLastAnswered) {
            m_ullLastAnswered = query;
            m_DefaultDeviceId = id ? id.Get() : L"";
        }
        endpoint.id = m_DefaultDeviceId;
    }
    if (endpoint.id.empty()) return;
    Log(6, kFunction, L"m_DefaultDeviceId updated to %s", endpoint.id.c_str());
}

void CAudioManager::CacheDefaultEndpoint(DefaultEndpoint& endpoint)
{
    SafeRelease(endpoint.device, L"CAudioManager::RecordDefaultDeviceId");
    FindOrInsert(endpoint.id.empty() ? nullptr : endpoint.id.c_str());
}

void CAudioManager::ClearDeviceArray()
{
    constexpr const wchar_t* kFunction = L"CAudioManager::ClearDeviceArray";
    std::array<Entry, kSlots> entries;
    {
        const ScopedLock lock(m_lock);
        m_bStarted = false;
        m_DeviceArray.swap(entries);
    }
    for (std::size_t slot = 0; slot < kSlots; ++slot) {
        if (!entries[slot]) continue;
        if (!entries[slot]->UnregisterEndpointVolumeCallback()) {
            Log(2, kFunction, L"UNABLE TO UNREGISTER FOR VOLUME CALLBACKS ON CACHED DEVICE %d!!!",
                static_cast<int>(slot));
        }
        entries[slot]->ReleaseEndpointVolume(kFunction);
        entries[slot].reset();
    }
}
