// Whether the PC is on AC power, as far as the service knows: read from the system when the service
// starts, then updated by every notification of a power-source change. Any thread.
#pragma once

#include <atomic>

#include "platform/base.h"

extern std::atomic<BOOL> g_bOnAcPower;
