#include "api/class_objects.h"

#include <atomic>

#include "api/agent_module.h"
#include "api/holv_agent_api.h"
#include "platform/counted_object.h"

namespace {

// It holds no lock on the module itself, which keeps it for as long as it serves.
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

// In static storage, and the maker's reference never given back: it is there for as long as the
// process, whatever becomes of the registration.
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
