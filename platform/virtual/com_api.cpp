// Apartments, classes and task memory.

#include "platform/com.h"

#include "platform/virtual/call.h"
#include "platform/virtual/memory.h"

using namespace virtual_pc;

namespace {

Function co_initialize_ex{"CoInitializeEx", Failing::hresult};
Function co_initialize{"CoInitialize", Failing::hresult};
Function co_uninitialize{"CoUninitialize", Failing::never, Role::gives_back};
Function co_create_instance{"CoCreateInstance", Failing::hresult};
Function co_resume_class_objects{"CoResumeClassObjects", Failing::hresult};
Function co_initialize_security{"CoInitializeSecurity", Failing::hresult};
Function co_add_ref_server_process{"CoAddRefServerProcess", Failing::never};
Function co_release_server_process{"CoReleaseServerProcess", Failing::never};
Function co_create_guid{"CoCreateGuid", Failing::hresult};
Function co_task_mem_alloc{"CoTaskMemAlloc"};
Function co_task_mem_free{"CoTaskMemFree", Failing::never, Role::gives_back};

HRESULT Enter(Function& function, DWORD how)
{
    Call call(function);
    if (call.Fails()) return static_cast<HRESULT>(call.error());
    Apartment& apartment = call.thread.apartment;
    const bool single = (how & COINIT_APARTMENTTHREADED) != 0;
    if (apartment.entered > 0 && apartment.single != single) return RPC_E_CHANGED_MODE;
    apartment.single = single;
    return apartment.entered++ == 0 ? S_OK : S_FALSE;
}

}  // namespace

extern "C" {

HRESULT WINAPI CoInitializeEx(LPVOID, DWORD how) { return Enter(co_initialize_ex, how); }

HRESULT WINAPI CoInitialize(LPVOID) { return Enter(co_initialize, COINIT_APARTMENTTHREADED); }

void WINAPI CoUninitialize()
{
    Call call(co_uninitialize);
    Apartment& apartment = call.thread.apartment;
    if (apartment.entered == 0) {
        call.machine.NoteMisuse("CoUninitialize on a thread that is in no apartment");
        return;
    }
    --apartment.entered;
}

HRESULT WINAPI CoCreateInstance(REFCLSID classId, IUnknown* outer, DWORD context, REFIID id,
                                LPVOID* object)
{
    Com::Factory factory;
    *object = nullptr;
    {
        Call call(co_create_instance);
        if (call.Fails()) return static_cast<HRESULT>(call.error());
        if (call.thread.apartment.entered == 0) return CO_E_NOTINITIALIZED;
        if (context & CLSCTX_INPROC_SERVER) factory = call.machine.com.FindInProcessClass(classId);
    }
    if (!factory) return REGDB_E_CLASSNOTREG;
    if (outer) return CLASS_E_NOAGGREGATION;
    return factory(id, object);
}

// Nobody outside the process looks for its class objects yet.
HRESULT WINAPI CoResumeClassObjects()
{
    Call call(co_resume_class_objects);
    return call.Fails() ? static_cast<HRESULT>(call.error()) : S_OK;
}

ULONG WINAPI CoAddRefServerProcess()
{
    Call call(co_add_ref_server_process);
    return ++call.process().server_references;
}

ULONG WINAPI CoReleaseServerProcess()
{
    Call call(co_release_server_process);
    return --call.process().server_references;
}

HRESULT WINAPI CoInitializeSecurity(LPVOID, LONG, LPVOID, LPVOID, DWORD, DWORD, LPVOID, DWORD,
                                    LPVOID)
{
    Call call(co_initialize_security);
    return call.Fails() ? static_cast<HRESULT>(call.error()) : S_OK;
}

HRESULT WINAPI CoCreateGuid(GUID* guid)
{
    Call call(co_create_guid);
    if (call.Fails()) return static_cast<HRESULT>(call.error());
    *guid = call.machine.com.NewGuid();
    return S_OK;
}

LPVOID WINAPI CoTaskMemAlloc(SIZE_T size)
{
    Call call(co_task_mem_alloc);
    if (call.Fails()) return nullptr;
    return Allocate(call, size, "task memory");
}

void WINAPI CoTaskMemFree(LPVOID memory)
{
    Call call(co_task_mem_free);
    Free(call, memory);
}
}
