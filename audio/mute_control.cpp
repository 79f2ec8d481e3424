// Sets the endpoints' mute states, and handles notifications of changes.

#include "audio/audio_manager.h"
#include "audio/sound_thread.h"
#include "log/log.h"
#include "state/never_sleep_state.h"

namespace {

// How long a new default or activated endpoint gets to settle.
constexpr DWORD kSettlingMs = 1000;

const wchar_t* MutedText(BOOL muted) { return muted ? L"muted" : L"not muted"; }

// Logs that `operation` ignores a notification without `what`. Returns FALSE.
BOOL RefuseNull(const wchar_t* function, const wchar_t* operation, const wchar_t* what)
{
    Log(6, function, L"%s is NULL, %s exit returning FALSE", what, operation);
    return FALSE;
}

// Sets the mute state of one endpoint and logs it.
HRESULT Configure(RegisteredAudioDevice& device, const GUID& context)
{
    constexpr const wchar_t* kFunction = L"CAudioManager::ConfigureAudioDeviceMuteState";
    BOOL stored = FALSE;
    BOOL desired = FALSE;
    const HRESULT hr = device.SetDesiredMuteState(context, stored, desired);
    if (hr != S_OK) return hr;
    Log(6, kFunction, L"Stored value %s desired value %s", MutedText(stored), MutedText(desired));
    Log(6, kFunction, L"SetMute called on device %s with %s", device.m_pwszDeviceId.c_str(),
        MutedText(desired));
    return hr;
}

}  // namespace

BOOL CAudioManager::ConfigureAudioDeviceMuteState(
    const std::shared_ptr<RegisteredAudioDevice>& pRegDevice)
{
    return !pRegDevice || SUCCEEDED(Configure(*pRegDevice, m_guidAudioContext));
}

void CAudioManager::ConfigureAudioDeviceMuteStates()
{
    constexpr const wchar_t* kFunction = L"CAudioManager::ConfigureAudioDeviceMuteStates";
    Log(6, kFunction, L"ConfigureAudioDeviceMuteStates entry");
    for (std::size_t slot = 0; slot < kSlots; ++slot) {
        const Entry entry = At(slot);
        if (entry && FAILED(Configure(*entry, m_guidAudioContext))) {
            Log(6, kFunction, L"Update attempt failed for index %d", static_cast<int>(slot));
        }
    }
    Log(6, kFunction, L"ConfigureAudioDeviceMuteStates exit");
}

BOOL CAudioManager::OnAudioDeviceMuteStateChange(
    const std::shared_ptr<RegisteredAudioDevice>& pRegDevice,
    const AUDIO_VOLUME_NOTIFICATION_DATA* pNotify)
{
    constexpr const wchar_t* kFunction = L"CAudioManager::OnAudioDeviceMuteStateChange";
    Log(6, kFunction, L"OnAudioDeviceMuteStateChange entry");
    if (!pRegDevice) return RefuseNull(kFunction, L"OnAudioDeviceMuteStateChange", L"pRegDevice");
    if (!pNotify) return RefuseNull(kFunction, L"OnAudioDeviceMuteStateChange", L"pNotify");
    const BOOL muted = pNotify->bMuted != FALSE;
    if (const std::wstring context = GuidText(pNotify->guidEventContext); !context.empty()) {
        Log(6, kFunction, L"Volume state change from %s context device is %s", context.c_str(),
            MutedText(muted));
    }
    if (CNeverSleepState::RecordAudioDeviceMuteState() && pRegDevice->TakeMuteState(muted)) {
        Log(6, kFunction, L"%s updated cache to %s", pRegDevice->m_pwszDeviceId.c_str(),
            MutedText(muted));
    }
    if (CNeverSleepState::EnforceHolvMuteState()) ConfigureAudioDeviceMuteState(pRegDevice);
    Log(6, kFunction, L"OnAudioDeviceMuteStateChange exit, returning TRUE");
    return TRUE;
}

BOOL CAudioManager::OnDefaultAudioDeviceMuteStateChange(
    const std::shared_ptr<RegisteredAudioDevice>& pRegDevice,
    const AUDIO_VOLUME_NOTIFICATION_DATA* pNotify)
{
    constexpr const wchar_t* kFunction = L"CAudioManager::OnDefaultAudioDeviceMuteStateChange";
    Log(6, kFunction, L"OnDefaultAudioDeviceMuteStateChange entry");
    if (!pNotify) return RefuseNull(kFunction, L"OnDefaultAudioDeviceMuteStateChange", L"pNotify");
    if (IsEqualGUID(pNotify->guidEventContext, m_guidAudioContext)) {
        Log(6, kFunction,
            L"OnDefaultAudioDeviceMuteStateChange called by our activity, exit returning TRUE");
        return TRUE;
    }
    CNeverSleepState::OnDefaultAudioDeviceCallbackReceived();
    OnAudioDeviceMuteStateChange(pRegDevice, pNotify);
    Log(6, kFunction, L"OnDefaultAudioDeviceMuteStateChange exit, returning TRUE");
    return TRUE;
}

// Core Audio forbids its notifications to wait, to register and to release an object for the last
// time. They write their lines, take the time stamps and decide on the thread that notifies; the
// rest they leave to the manager's thread, which works in the order in which it is asked. A Stop
// cuts the waits short.

void CAudioManager::OnDeviceAdded(const wchar_t* id)
{
    SoundThread::Do(0, [added = std::wstring(id)] { FindOrInsert(added.c_str()); });
}

void CAudioManager::OnAudioDeviceActivated(const wchar_t* id)
{
    constexpr const wchar_t* kFunction = L"CAudioManager::OnAudioDeviceActivated";
    Log(6, kFunction, L"OnAudioDeviceActivated entry");
    CNeverSleepState::OnDefaultAudioDeviceCallbackReceived();
    SoundThread::Do(kSettlingMs, [activated = std::wstring(id)] {
        // An endpoint that is new to the cache keeps its mute state.
        const wchar_t* const settled = activated.c_str();
        if (!FindOrInsert(settled)) ConfigureAudioDeviceMuteState(FindDevicePair(settled));
        Log(6, kFunction, L"OnAudioDeviceActivated exit");
    });
}

void CAudioManager::OnDefaultDeviceChange(const wchar_t* id)
{
    Log(6, L"CAudioManager::OnDefaultDeviceChange", L"OnDefaultDeviceChange called with to %s",
        id ? id : L"NULL");
    auto endpoint = std::make_shared<DefaultEndpoint>();
    FindDefaultEndpoint(*endpoint);
    // Moved, so that the references end where the work does.
    SoundThread::Do(0, [moved = std::move(endpoint)] {
        if (moved->found) CacheDefaultEndpoint(*moved);
    });
    if (!CNeverSleepState::EnforceHolvMuteState()) return;
    SoundThread::Do(kSettlingMs, ConfigureAudioDeviceMuteStates);
}
