// The type library of the control interface, which the executable carries.
#pragma once

#include "platform/com.h"

// Registers the library and its interfaces from the running executable: for the whole machine, or
// for the current user only.
HRESULT RegisterAgentTypeLibrary(bool perUser);
HRESULT UnregisterAgentTypeLibrary(bool perUser);
