#include "api/class_objects.h"

#include <atomic>

#include "api/agent_module.h"
#include "api/holv_agent_api.h"
#include "platform/counted_object.h"

namespace {

// Holds no lock on the module: the module keeps the class object registered while it serves
// clients.
class AgentClassObject final
    : public CountedObject<IClassFactory, IID_IClassFactory, AgentClassObject>
{
public:
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID id, void** object) override
    {
        return HOLVAgentApi::Create(outer, id, object);
    }

    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override
    {
        if (lock) {
            LockAgentModule();
        } else {
            UnlockAgentModule();
        }
        return S_OK;
    }
};

// In static storage, and its first reference is never released: it exists as long as the process,
// even if it cannot be revoked.
AgentClassObject g_class_object;
std::atomic<DWORD> g_registration = 0;

}  // namespace

HRESULT RegisterAgentClassObjects(DWORD clsContext, DWORD flags)
{
    DWORD registration = 0;
    const HRESULT result = CoRegisterClassObject(CLSID_HOLVAgentApi, &g_class_object, clsContext,
                                                 flags, &registration);
    if (SUCCEEDED(result)) g_registration = registration;
    return result;
}

HRESULT RevokeAgentClassObjects()
{
    const DWORD registration = g_registration.exchange(0);
    return registration ? CoRevokeClassObject(registration) : S_OK;
}
