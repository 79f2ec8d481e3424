// The state machine's thread.
#pragma once

#include "platform/kernel.h"

// Thread procedure: runs the state machine to its end and reports the service stopped. Returns 0.
DWORD WINAPI StateMachineThreadProc(LPVOID parameter);
