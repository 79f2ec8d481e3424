// Apartments, classes and task memory.

#include "platform/com.h"

#include "platform/virtual/base/guid.h"
#include "platform/virtual/com/com.h"
#include "platform/virtual/core/call.h"
#include "platform/virtual/core/memory.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/processes/programs.h"
#include "platform/virtual/registry/registry.h"
#include "platform/virtual/sessions/session.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

Function fn_co_initialize_ex{"CoInitializeEx", Failing::hresult};
Function fn_co_initialize{"CoInitialize", Failing::hresult};
Function fn_co_uninitialize{"CoUninitialize", Failing::never, Role::releases};
Function fn_co_create_instance{"CoCreateInstance", Failing::hresult};
Function fn_clsid_from_prog_id{"CLSIDFromProgID", Failing::hresult};
Function fn_co_register_class_object{"CoRegisterClassObject", Failing::hresult};
Function fn_co_revoke_class_object{"CoRevokeClassObject", Failing::hresult, Role::releases};
Function fn_co_resume_class_objects{"CoResumeClassObjects", Failing::hresult};
Function fn_co_add_ref_server_process{"CoAddRefServerProcess", Failing::never};
Function fn_co_release_server_process{"CoReleaseServerProcess", Failing::never, Role::releases};
Function fn_co_initialize_security{"CoInitializeSecurity", Failing::hresult};
Function fn_co_create_guid{"CoCreateGuid", Failing::hresult};
Function fn_co_task_mem_alloc{"CoTaskMemAlloc"};
Function fn_co_task_mem_free{"CoTaskMemFree", Failing::never, Role::releases};

// How long the system waits for a server's class object.
constexpr Duration kServerStart = 120s;

HRESULT Enter(Function& function, DWORD how)
{
    Call call(function);
    ApartmentMembership& membership = call.thread.membership;
    const bool single = (how & COINIT_APARTMENTTHREADED) != 0;
    if (call.Fails()) {
        const auto error = static_cast<HRESULT>(call.error());
        // A simulated RPC_E_CHANGED_MODE implies that other code has entered the multithreaded
        // apartment on this thread before; model that.
        if (error == RPC_E_CHANGED_MODE && single && !membership.apartment) {
            membership.apartment = call.machine.com.Multithreaded(call.process());
        }
        return error;
    }
    if (membership.entered > 0) {
        if (membership.apartment->single() != single) return RPC_E_CHANGED_MODE;
        ++membership.entered;
        return S_FALSE;
    }
    membership.apartment = single ? call.machine.com.SingleThreaded(call.process(), call.thread)
                                  : call.machine.com.Multithreaded(call.process());
    if (single) call.thread.message_server = membership.apartment;
    ++membership.apartment->threads;
    membership.entered = 1;
    // Incoming calls are posted to the thread as messages.
    if (single) call.thread.has_queue = true;
    return S_OK;
}

// --- Activation ---

std::wstring ClassKey(REFCLSID class_id)
{
    return LR"(HKCR\CLSID\{)" + FormatGuid(class_id) + L"}";
}

// Starts the server that the registry names for a class: the service of its AppID, or a program.
// `process` is the program's; null for a service.
HRESULT StartServer(Call& call, REFCLSID class_id, Process*& process)
{
    const Registry& registry = call.machine.registry;
    const std::wstring key = ClassKey(class_id);
    const auto program = registry.GetString(key + LR"(\LocalServer32)", L"");
    std::optional<std::wstring> service;
    if (const auto app_id = registry.GetString(key, L"AppID")) {
        service = registry.GetString(LR"(HKCR\AppID\)" + *app_id, L"LocalService");
    }
    if (service) {
        const auto& start = call.machine.com.start_service;
        return start ? start(*service) : CO_E_SERVER_EXEC_FAILURE;
    }
    if (!program) return REGDB_E_CLASSNOTREG;
    for (const std::wstring& path : CandidatePrograms(*program)) {
        process = call.machine.programs.StartInstalled(path, L"\"" + path + L"\" -Embedding");
        if (process) return S_OK;
    }
    return CO_E_SERVER_EXEC_FAILURE;
}

// Finds a class object, and starts its server when none is registered.
HRESULT FindServer(Call& call, REFCLSID class_id, ExportedInterface& class_object)
{
    Process* process = nullptr;
    const Instant deadline = call.machine.now() + kServerStart;
    for (bool started = false;; started = true) {
        if (auto serving = call.machine.com.Serving(class_id)) {
            class_object = std::move(*serving);
            return S_OK;
        }
        if (!started) {
            Process*& starting = call.machine.com.Starting(class_id);
            const HRESULT result = starting ? S_OK : StartServer(call, class_id, starting);
            if (FAILED(result)) return result;
            process = starting;
        }
        std::vector<std::shared_ptr<Waitable>> awaited{call.machine.com.AwaitServing()};
        if (process) awaited.push_back(process->object());
        const DWORD woken = Waitable::WaitFor(call.machine, call.thread, awaited, false, deadline);
        if (woken != WAIT_OBJECT_0) return CO_E_SERVER_EXEC_FAILURE;
    }
}

HRESULT CreateElsewhere(REFCLSID class_id, REFIID id, void** object)
{
    const Boundary boundary;
    ExportedInterface class_object;
    {
        Call call(fn_co_create_instance);
        const HRESULT found = FindServer(call, class_id, class_object);
        if (FAILED(found)) return found;
    }
    IClassFactory* factory = nullptr;
    const HRESULT come = ImportInterface(class_object, reinterpret_cast<void**>(&factory));
    if (FAILED(come)) return come;
    const HRESULT made = factory->CreateInstance(nullptr, id, object);
    factory->Release();
    return made;
}

}  // namespace

extern "C" {

HRESULT WINAPI CoInitializeEx(LPVOID, DWORD how) { return Enter(fn_co_initialize_ex, how); }

HRESULT WINAPI CoInitialize(LPVOID) { return Enter(fn_co_initialize, COINIT_APARTMENTTHREADED); }

void WINAPI CoUninitialize()
{
    std::shared_ptr<Apartment> closing;
    {
        Call call(fn_co_uninitialize);
        if (call.Void()) return;
        ApartmentMembership& membership = call.thread.membership;
        if (membership.entered == 0) {
            call.machine.NoteMisuse("CoUninitialize on a thread that is in no apartment");
            return;
        }
        if (membership.entered > 1) {
            --membership.entered;
            return;
        }
        if (--membership.apartment->threads == 0) closing = membership.apartment;
    }
    // Close calls the apartment's objects, so the thread leaves the apartment only afterwards.
    if (closing) closing->Close();
    Thread::Self()->membership = {};
    Thread::Self()->message_server.reset();
}

HRESULT WINAPI CoCreateInstance(REFCLSID classId, IUnknown* outer, DWORD context, REFIID id,
                                LPVOID* object)
{
    Com::Factory factory;
    if (!object) return E_POINTER;
    *object = nullptr;
    {
        Call call(fn_co_create_instance);
        if (call.Fails()) return static_cast<HRESULT>(call.error());
        if (!call.thread.membership.apartment) return CO_E_NOTINITIALIZED;
        if (context & CLSCTX_INPROC_SERVER) factory = call.machine.com.FindInProcessClass(classId);
    }
    if (!factory && !(context & CLSCTX_LOCAL_SERVER)) return REGDB_E_CLASSNOTREG;
    if (outer) return CLASS_E_NOAGGREGATION;
    return factory ? factory(id, object) : CreateElsewhere(classId, id, object);
}

HRESULT WINAPI CLSIDFromProgID(LPCWSTR programId, CLSID* classId)
{
    Call call(fn_clsid_from_prog_id);
    if (!programId || !classId) return E_INVALIDARG;
    *classId = GUID_NULL;
    if (call.Fails()) return static_cast<HRESULT>(call.error());
    const auto text =
        call.machine.registry.GetString(LR"(HKCR\)" + std::wstring(programId) + LR"(\CLSID)", L"");
    const auto id =
        text && text->size() > 2 ? ParseGuid(text->substr(1, text->size() - 2)) : std::nullopt;
    if (!id) return CO_E_CLASSSTRING;
    *classId = *id;
    return S_OK;
}

// --- Class objects ---

// Only for clients in other programs, and for any number of them.
HRESULT WINAPI CoRegisterClassObject(REFCLSID classId, IUnknown* object, DWORD context, DWORD flags,
                                     LPDWORD registration)
{
    {
        Call call(fn_co_register_class_object);
        if (call.Fails()) return static_cast<HRESULT>(call.error());
        if (!object || !registration) return E_INVALIDARG;
        if (context != CLSCTX_LOCAL_SERVER || !(flags & REGCLS_MULTIPLEUSE)) return E_INVALIDARG;
        if (!call.thread.membership.apartment) return CO_E_NOTINITIALIZED;
    }
    ExportedInterface exported;
    const HRESULT sent = ExportInterface(object, IID_IClassFactory, exported);
    if (FAILED(sent)) return sent;
    Machine& machine = Machine::Current();
    const Hold hold(machine);
    *registration = machine.com.Offer(classId, std::move(exported), Thread::Self()->process,
                                      (flags & REGCLS_SUSPENDED) != 0);
    return S_OK;
}

HRESULT WINAPI CoRevokeClassObject(DWORD registration)
{
    ExportedInterface given_back;
    {
        Call call(fn_co_revoke_class_object);
        if (call.Fails()) return static_cast<HRESULT>(call.error());
        const Com::Offered* offered = call.machine.com.FindOffer(registration);
        if (!offered || offered->process != call.thread.process) return E_INVALIDARG;
        if (offered->object.object->home != call.thread.membership.apartment)
            return RPC_E_WRONG_THREAD;
        given_back = offered->object;
        call.machine.com.Withdraw(registration);
    }
    return S_OK;
}

HRESULT WINAPI CoResumeClassObjects()
{
    Call call(fn_co_resume_class_objects);
    if (call.Fails()) return static_cast<HRESULT>(call.error());
    call.machine.com.SetSuspended(&call.process(), false);
    return S_OK;
}

ULONG WINAPI CoAddRefServerProcess()
{
    Call call(fn_co_add_ref_server_process);
    return call.machine.com.ChangeServerReferences(&call.process(), 1);
}

ULONG WINAPI CoReleaseServerProcess()
{
    Call call(fn_co_release_server_process);
    if (call.Void()) return 0;
    const ULONG left = call.machine.com.ChangeServerReferences(&call.process(), -1);
    if (left == 0) call.machine.com.SetSuspended(&call.process(), true);
    return left;
}

// Effect "com security": the levels and `capabilities` that a process has set. Calls are not
// checked against them: every one is allowed.
HRESULT WINAPI CoInitializeSecurity(LPVOID descriptor, LONG services, LPVOID, LPVOID reserved,
                                    DWORD authentication, DWORD impersonation, LPVOID,
                                    DWORD capabilities, LPVOID reservedToo)
{
    Call call(fn_co_initialize_security);
    if (call.Fails()) return static_cast<HRESULT>(call.error());
    if (reserved || reservedToo) return E_INVALIDARG;
    if (!call.thread.membership.apartment) return CO_E_NOTINITIALIZED;
    const Com::CallSecurity security{.descriptor = descriptor != nullptr,
                                     .services = services,
                                     .authentication = authentication,
                                     .impersonation = impersonation,
                                     .capabilities = capabilities};
    if (!call.machine.com.SettleSecurity(&call.process(), security)) return RPC_E_TOO_LATE;
    call.machine.journal.Record("com security", {{"authentication", std::uint64_t{authentication}},
                                                 {"impersonation", std::uint64_t{impersonation}},
                                                 {"capabilities", std::uint64_t{capabilities}}});
    return S_OK;
}

HRESULT WINAPI CoCreateGuid(GUID* guid)
{
    Call call(fn_co_create_guid);
    if (!guid) return E_INVALIDARG;
    // Also where it fails: nothing says that it then writes none.
    *guid = call.machine.com.NewGuid();
    return call.Fails() ? static_cast<HRESULT>(call.error()) : S_OK;
}

LPVOID WINAPI CoTaskMemAlloc(SIZE_T size)
{
    Call call(fn_co_task_mem_alloc);
    if (call.Fails()) return nullptr;
    return Allocate(call, size, "task memory");
}

void WINAPI CoTaskMemFree(LPVOID memory)
{
    Call call(fn_co_task_mem_free);
    Free(call, memory);
}
}
