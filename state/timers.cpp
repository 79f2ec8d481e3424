// The do-not-disturb hours, the idle monitor and the delayed never-sleep entry belong here. Nothing
// is done yet: it is never do-not-disturb time, and no timer is armed.
#include "state/never_sleep_state.h"

BOOL CNeverSleepState::CheckIfDoNotDisturbTime() { return FALSE; }
void CNeverSleepState::CreateDoNotDisturbTimer() {}
void CNeverSleepState::OnEnterNeverSleepDoNotDisturbTime() {}
void CNeverSleepState::OnLeaveNeverSleepDoNotDisturbTime() {}
void CNeverSleepState::RefreshDoNotDisturbState() {}
void CNeverSleepState::MonitorIdleTimer() {}
void CNeverSleepState::EnterNeverSleepStateWithDelay() {}
void CNeverSleepState::OnDelayedNeverSleepStateEntry() {}
