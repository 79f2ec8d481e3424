// The state machine's thread.
#pragma once

#include "platform/kernel.h"

// Thread procedure: runs the state machine to its end, restores before and after that what is the
// user's, reports the service stopped, and ends the message loop of the service. Returns 0.
DWORD WINAPI StateMachineThreadProc(LPVOID parameter);
