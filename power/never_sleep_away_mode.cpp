// Nothing is done yet: there are no requests.
#include "power/never_sleep_away_mode.h"

BOOL CNeverSleepAwayMode::Initialize() { return TRUE; }
void CNeverSleepAwayMode::Uninitialize() {}
BOOL CNeverSleepAwayMode::EnableAwayMode() { return TRUE; }
BOOL CNeverSleepAwayMode::DisableAwayMode() { return TRUE; }
BOOL CNeverSleepAwayMode::DisableIdleTimer() { return TRUE; }
BOOL CNeverSleepAwayMode::EnableIdleTimer() { return TRUE; }
