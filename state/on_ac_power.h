// The power source as the service knows it: set from the system's status when the service starts,
// and by every change that is announced. Any thread.
#pragma once

#include <atomic>

#include "platform/base.h"

extern std::atomic<BOOL> g_bOnAcPower;
