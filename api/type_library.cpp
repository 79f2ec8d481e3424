// Provisional: there is no type library to register yet.
#include "api/type_library.h"

HRESULT RegisterAgentTypeLibrary(bool) { return S_OK; }
HRESULT UnregisterAgentTypeLibrary(bool) { return S_OK; }
