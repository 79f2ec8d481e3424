// Nothing is done yet: the device is never found.
#include "power/driver_api.h"

BOOL CDriverApi::Initialize() { return FALSE; }
BOOL CDriverApi::SetNeverSleepMode(DWORD) { return FALSE; }
BOOL IsHolvDevicePresent() { return FALSE; }
