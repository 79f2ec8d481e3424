// Provisional: there are no class objects yet, so clients find nobody.
#include "api/class_objects.h"

HRESULT RegisterAgentClassObjects(DWORD, DWORD) { return S_OK; }
HRESULT RevokeAgentClassObjects() { return S_OK; }
