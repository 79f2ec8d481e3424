// Which mute state an audio endpoint is to have, and whose choice a mute change was, are decided
// here. Nothing is decided yet: the answer is always no.
#include "state/never_sleep_state.h"

BOOL CNeverSleepState::GetDesiredMuteState(BOOL) { return FALSE; }
BOOL CNeverSleepState::RecordAudioDeviceMuteState() { return FALSE; }
BOOL CNeverSleepState::EnforceHolvMuteState() { return FALSE; }
BOOL CNeverSleepState::AudioAndSusResEventsAreInWindow() { return FALSE; }
void CNeverSleepState::OnDefaultAudioDeviceCallbackReceived() {}
