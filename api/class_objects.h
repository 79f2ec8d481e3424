// The class object through which clients create objects of the control interface.
#pragma once

#include "platform/com.h"

// Registers it for a context (CLSCTX_...) with flags (REGCLS_...), for the calling thread's
// apartment.
HRESULT RegisterAgentClassObjects(DWORD clsContext, DWORD flags);

// Revokes it; call in the apartment that registered it. S_OK also when it is not registered.
HRESULT RevokeAgentClassObjects();
