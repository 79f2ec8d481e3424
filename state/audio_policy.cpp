// Decides which mute state an audio endpoint should have, and whether a change of it was the user's
// choice. A change within five seconds of a suspend, a resume or a change of away mode is
// attributed to the system.

#include "log/log.h"
#include "platform/kernel.h"
#include "settings/settings.h"
#include "state/never_sleep_state.h"

namespace {

constexpr std::uint64_t kWindowMs = 5000;

// Both times, read once, so that a decision and its log lines agree although other threads may
// update the times meanwhile.
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

// Applies a rule and logs its entry and its result.
BOOL Decide(const wchar_t* function, FormatFor<> entry, FormatFor<const wchar_t*> exit,
            BOOL (*rule)())
{
    Log(6, function, entry);
    const BOOL decision = rule();
    Log(6, function, exit, BoolText(decision));
    return decision;
}

}  // namespace

BOOL CNeverSleepState::GetDesiredMuteState(BOOL cached)
{
    // While the PC sleeps, the rule of the state before the sleep applies.
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
    return Decide(L"CNeverSleepState::RecordAudioDeviceMuteState",
                  L"RecordAudioDeviceMuteState entry",
                  L"RecordAudioDeviceMuteState exit returning %s", IsUsersChoice);
}

BOOL CNeverSleepState::EnforceHolvMuteState()
{
    return Decide(L"CNeverSleepState::EnforceHolvMuteState", L"EnforceHolvMuteState entry",
                  L"EnforceHolvMuteState exit, returning %s", IsToBeEnforced);
}

void CNeverSleepState::OnDefaultAudioDeviceCallbackReceived()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::OnDefaultAudioDeviceCallbackReceived";
    if (m_eSystemState == HOLV_INIT) return;
    Log(1, kFunction, L"OnDefaultAudioDeviceCallbackReceived entry");
    m_ullLastAudioEventTime = GetTickCount64();
    Log(1, kFunction, L"OnDefaultAudioDeviceCallbackReceived exit");
}
