// Sending the machine to sleep, what happens on suspend and resume, and reading the system's list
// of power requests belong here. Nothing is done yet: the machine is never sent to sleep.
#include "state/never_sleep_state.h"

void CNeverSleepState::GotToSleepNow() {}
void CNeverSleepState::OnSuspend() {}
void CNeverSleepState::OnResume(BOOL) {}
BOOL CNeverSleepState::IsDisplayRequiredSet() { return FALSE; }
void LogOutstandingPowerRequests() {}
