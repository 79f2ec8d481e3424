// Which mute state an audio endpoint is to have, and whose choice a change of it was. A change that
// comes within five seconds of a suspend, a resume or a change of away mode is taken for the
// system's doing.

#include "log/log.h"
#include "platform/kernel.h"
#include "settings/settings.h"
#include "state/never_sleep_state.h"

namespace {

constexpr std::uint64_t kWindowMs = 5000;

const wchar_t* Spell(BOOL flag) { return flag ? L"TRUE" : L"FALSE"; }

// The two times, read once, so that a decision and its lines agree whatever other threads stamp
// meanwhile.
struct EventTimes
{
    bool AudioIsAfter() const { return audio > sus_res; }

    BOOL AreInWindow() const
    {
        constexpr const wchar_t* kFunction = L"CNeverSleepState::AudioAndSusResEventsAreInWindow";
        const std::uint64_t delta = AudioIsAfter() ? audio - sus_res : sus_res - audio;
        const bool in_window = delta < kWindowMs;
        Log(6, kFunction,
            L"Last audio event timestamp = %I64u ms, last Sus/Res event timestamp = %I64u ms",
            audio, sus_res);
        Log(6, kFunction,
            L"Audio event happened %s the Sus/Res event with a delta of %I64u ms which %s in the "
            L"window.",
            AudioIsAfter() ? L"after" : L"before", delta, in_window ? L"is" : L"is not");
        return in_window;
    }

    const std::uint64_t audio = CNeverSleepState::m_ullLastAudioEventTime;
    const std::uint64_t sus_res = CNeverSleepState::m_ullLastSusResEventTime;
};

BOOL IsUsersChoice()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::RecordAudioDeviceMuteState";
    const ESystemState state = CNeverSleepState::m_eSystemState;
    if (CNeverSleepState::m_bInAwayMode) {
        Log(6, kFunction, L"In away mode, do not record user preference");
        return FALSE;
    }
    if (state == HOLV_INIT) {
        Log(6, kFunction, L"Holv initializing, record");
        return TRUE;
    }
    if (state != S0_NORMAL) {
        Log(6, kFunction, L"Not in S0, do not record user preference");
        return FALSE;
    }
    const EventTimes times;
    if (!times.AudioIsAfter()) {
        Log(6, kFunction, L"Audio event before Sus/Res event");
        return FALSE;
    }
    if (times.AreInWindow()) {
        Log(6, kFunction, L"Audio event after Sus/Res event and in window");
        return FALSE;
    }
    return TRUE;
}

BOOL IsToBeEnforced()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::EnforceHolvMuteState";
    if (CNeverSleepState::m_bInAwayMode) return TRUE;
    const EventTimes times;
    if (!times.AudioIsAfter()) {
        Log(6, kFunction, L"Audio event before Sus/Res event");
        return CNeverSleepState::m_eSystemState == S0_NORMAL;
    }
    if (times.AreInWindow()) return TRUE;
    Log(6, kFunction, L"Audio event after Sus/Res event but not in window");
    return FALSE;
}

}  // namespace

BOOL CNeverSleepState::GetDesiredMuteState(BOOL cached)
{
    // A sleeping machine keeps the rule of the state that it slept from.
    ESystemState state = m_eSystemState;
    if (state == HOLV_S3) state = m_ePreviousState;
    switch (state) {
        case S0_NORMAL:
            return cached;
        case HOLV_ACTIVE:
        case HOLV_IDLE:
            return g_bMuteAudio || cached;
        case HOLV_DND:
            return TRUE;
        default:
            Log(2, L"CNeverSleepState::GetDesiredMuteState", L"default case hit");
            return cached;
    }
}

BOOL CNeverSleepState::AudioAndSusResEventsAreInWindow() { return EventTimes{}.AreInWindow(); }

BOOL CNeverSleepState::RecordAudioDeviceMuteState()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::RecordAudioDeviceMuteState";
    Log(6, kFunction, L"RecordAudioDeviceMuteState entry");
    const BOOL record = IsUsersChoice();
    Log(6, kFunction, L"RecordAudioDeviceMuteState exit returning %s", Spell(record));
    return record;
}

BOOL CNeverSleepState::EnforceHolvMuteState()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::EnforceHolvMuteState";
    Log(6, kFunction, L"EnforceHolvMuteState entry");
    const BOOL enforce = IsToBeEnforced();
    Log(6, kFunction, L"EnforceHolvMuteState exit, returning %s", Spell(enforce));
    return enforce;
}

void CNeverSleepState::OnDefaultAudioDeviceCallbackReceived()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::OnDefaultAudioDeviceCallbackReceived";
    if (m_eSystemState == HOLV_INIT) return;
    Log(1, kFunction, L"OnDefaultAudioDeviceCallbackReceived entry");
    m_ullLastAudioEventTime = GetTickCount64();
    Log(1, kFunction, L"OnDefaultAudioDeviceCallbackReceived exit");
}
