// What the service does when the system announces away mode, the display, the user's presence, the
// power source and the like belongs here. Nothing is done yet.
#include "state/never_sleep_state.h"

void CNeverSleepState::OnAwayModeEvent(DWORD) {}
void CNeverSleepState::OnDisplayStateChange(DWORD) {}
void CNeverSleepState::OnUserPresenceEvent(DWORD) {}
void CNeverSleepState::OnPowerSourceChange(DWORD) {}
void CNeverSleepState::OnSleepTimeoutChange(DWORD) {}
void CNeverSleepState::OnPowerOptionChanged(const GUID&) {}
void CNeverSleepState::OnSessionChange(DWORD, const tagWTSSESSION_NOTIFICATION*) {}
void CNeverSleepState::OnSystemTimeChange() {}
