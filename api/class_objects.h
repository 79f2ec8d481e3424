// The class objects through which clients make objects of the control interface.
#pragma once

#include "platform/com.h"

// Registers them for a context (CLSCTX_...) with flags (REGCLS_...), for the calling thread's
// apartment. On failure none is registered.
HRESULT RegisterAgentClassObjects(DWORD clsContext, DWORD flags);

// Takes them back, in the apartment that registered them. S_OK also when none is registered.
HRESULT RevokeAgentClassObjects();
