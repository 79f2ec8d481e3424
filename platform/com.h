// Component objects: the base interface, apartments, classes and task memory.
//
// Interfaces are plain C++ classes whose functions stand in the order of their slots. Every one is
// derived from IUnknown; the caller releases a reference with Release.
#pragma once

#include "platform/base.h"

#ifdef _WIN32

#include <objbase.h>
#include <unknwn.h>

#else

#include <cstring>

using IID = GUID;
using CLSID = GUID;
using REFGUID = const GUID&;
using REFIID = const IID&;
using REFCLSID = const CLSID&;

#define STDMETHODCALLTYPE

inline bool IsEqualGUID(REFGUID a, REFGUID b) { return std::memcmp(&a, &b, sizeof(GUID)) == 0; }
inline bool IsEqualIID(REFIID a, REFIID b) { return IsEqualGUID(a, b); }
inline bool operator==(REFGUID a, REFGUID b) { return IsEqualGUID(a, b); }

#define E_NOTIMPL (static_cast<HRESULT>(0x80004001u))
#define E_NOINTERFACE (static_cast<HRESULT>(0x80004002u))
#define E_POINTER (static_cast<HRESULT>(0x80004003u))
#define E_UNEXPECTED (static_cast<HRESULT>(0x8000FFFFu))
#define E_OUTOFMEMORY (static_cast<HRESULT>(0x8007000Eu))
#define CLASS_E_NOAGGREGATION (static_cast<HRESULT>(0x80040110u))
#define E_ACCESSDENIED (static_cast<HRESULT>(0x80070005u))
#define REGDB_E_CLASSNOTREG (static_cast<HRESULT>(0x80040154u))
#define REGDB_E_IIDNOTREG (static_cast<HRESULT>(0x80040155u))
#define CO_E_CLASSSTRING (static_cast<HRESULT>(0x800401F3u))
#define CO_E_SERVER_EXEC_FAILURE (static_cast<HRESULT>(0x80080005u))
#define RPC_E_SERVERFAULT (static_cast<HRESULT>(0x80010105u))
#define RPC_E_DISCONNECTED (static_cast<HRESULT>(0x80010108u))
#define RPC_E_WRONG_THREAD (static_cast<HRESULT>(0x8001010Eu))
#define CO_E_NOTINITIALIZED (static_cast<HRESULT>(0x800401F0u))
#define RPC_E_CHANGED_MODE (static_cast<HRESULT>(0x80010106u))
#define RPC_E_TOO_LATE (static_cast<HRESULT>(0x80010119u))

#define CLSCTX_INPROC_SERVER 0x1u
#define CLSCTX_LOCAL_SERVER 0x4u
#define CLSCTX_ALL 0x17u

#define REGCLS_SINGLEUSE 0u
#define REGCLS_MULTIPLEUSE 1u
#define REGCLS_SUSPENDED 4u

#define RPC_C_AUTHN_LEVEL_NONE 1u
#define RPC_C_IMP_LEVEL_IDENTIFY 2u
#define EOAC_NONE 0u

#define COINIT_MULTITHREADED 0x0u
#define COINIT_APARTMENTTHREADED 0x2u

inline constexpr GUID GUID_NULL{};
inline constexpr IID IID_NULL{};
inline constexpr IID IID_IUnknown{
    0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

inline constexpr IID IID_IClassFactory{
    0x00000001, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

class IUnknown
{
public:
    // The object's interface `id`, with a reference for the caller; E_NOINTERFACE and null when the
    // object lacks it.
    virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) = 0;
    // Both return the new count.
    virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
    virtual ULONG STDMETHODCALLTYPE Release() = 0;

protected:
    ~IUnknown() = default;
};

// A class object, which creates objects of its class.
class IClassFactory : public IUnknown
{
public:
    // Creates an object and returns its interface `id`. With `outer` the object is aggregated into
    // another one, and `id` must be IID_IUnknown: CLASS_E_NOAGGREGATION otherwise.
    virtual HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID id, void** object) = 0;
    // TRUE keeps the server process alive; FALSE undoes one such call.
    virtual HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) = 0;

protected:
    ~IClassFactory() = default;
};

extern "C" {

// Puts the calling thread into an apartment: with COINIT_APARTMENTTHREADED one of its own, whose
// incoming calls its message loop delivers; with COINIT_MULTITHREADED the one that the process's
// other threads share. S_OK, or S_FALSE when the thread was in that kind already (both need one
// CoUninitialize each); RPC_E_CHANGED_MODE when it is in the other kind.
HRESULT WINAPI CoInitializeEx(LPVOID reserved, DWORD how);
// The same with COINIT_APARTMENTTHREADED.
HRESULT WINAPI CoInitialize(LPVOID reserved);
void WINAPI CoUninitialize();

// Creates an object of a class. REGDB_E_CLASSNOTREG when there is no such class,
// CO_E_NOTINITIALIZED when the thread is in no apartment. `object` is null on failure.
HRESULT WINAPI CoCreateInstance(REFCLSID classId, IUnknown* outer, DWORD context, REFIID id,
                                LPVOID* object);

// The class registered under a name in the registry; CO_E_CLASSSTRING for an unknown name.
HRESULT WINAPI CLSIDFromProgID(LPCWSTR programId, CLSID* classId);

// Offers a class object to other processes (CLSCTX_LOCAL_SERVER); the calling thread's apartment
// serves it. Holds a reference to it until it is revoked. With REGCLS_SUSPENDED no client finds it
// before CoResumeClassObjects.
HRESULT WINAPI CoRegisterClassObject(REFCLSID classId, IUnknown* object, DWORD context, DWORD flags,
                                     LPDWORD registration);
// Ends a registration. E_INVALIDARG for an unknown number, RPC_E_WRONG_THREAD in another
// apartment.
HRESULT WINAPI CoRevokeClassObject(DWORD registration);
// Lets clients find all suspended class objects of the calling process.
HRESULT WINAPI CoResumeClassObjects();

// Count what keeps the calling process alive; both return the new count. When it falls to 0, the
// process's class objects are suspended, so that no client connects while it ends.
ULONG WINAPI CoAddRefServerProcess();
ULONG WINAPI CoReleaseServerProcess();

// Sets the process's security for calls; with `services` -1 the system chooses the services. Once
// in a process, and before an interface comes into it or leaves one of its apartments:
// RPC_E_TOO_LATE otherwise, and CO_E_NOTINITIALIZED on a thread that is in no apartment. Where no
// thread calls it, only the server's own user and the local system may call.
HRESULT WINAPI CoInitializeSecurity(LPVOID securityDescriptor, LONG services, LPVOID serviceList,
                                    LPVOID reserved1, DWORD authenticationLevel,
                                    DWORD impersonationLevel, LPVOID authenticationList,
                                    DWORD capabilities, LPVOID reserved3);

// A new identifier.
HRESULT WINAPI CoCreateGuid(GUID* guid);

// Memory that a callee allocates and its caller frees. Null when there is no memory left; freeing
// null does nothing.
LPVOID WINAPI CoTaskMemAlloc(SIZE_T size);
void WINAPI CoTaskMemFree(LPVOID memory);
}

#endif
