// A client of the Holv service in C++: shows the status, switches a feature, sets the
// do-not-disturb interval, raises an event code, or listens to event codes.
//
//     holv_client status
//     holv_client set FEATURE VALUE      features by number: 1 mutes the speakers, ...
//     holv_client interval START END     minutes since midnight
//     holv_client event CODE             raises it; this program's own sink hears it
//     holv_client listen SECONDS         raises code 1 and waits for what its sink hears
//
// It calls the interface's functions directly, through the type library that the service registers.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "api/agent_api.h"
#include "platform/counted_object.h"

namespace {

constexpr const wchar_t* kFeatures[] = {L"never-sleep mode",
                                        L"speakers are muted",
                                        L"do not disturb",
                                        L"app suspend",
                                        L"Lync is installed",
                                        L"display on Lync",
                                        L"sleep in do-not-disturb hours",
                                        L"never-sleep on battery",
                                        L"has a battery"};

// A reference that is given back.
template <class Interface>
struct Reference
{
    ~Reference()
    {
        if (object) object->Release();
    }
    void** Receive() { return reinterpret_cast<void**>(&object); }
    Interface* operator->() const { return object; }
    Interface* object = nullptr;
};

// Prints the event codes that it hears, and lets them pass.
class Sink final : public CountedObject<IDispatch, IID_IDispatch, Sink>
{
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override
    {
        return CountedObject::QueryInterface(
            IsEqualIID(id, DIID__HOLVAgentSinkEvent) ? IID_IDispatch : id, object);
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override
    {
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID member, REFIID, LCID, WORD, DISPPARAMS* arguments,
                                     VARIANT*, EXCEPINFO*, UINT*) override
    {
        if (member != DISPID_HOLVAgentEventChanged) return DISP_E_MEMBERNOTFOUND;
        // In reverse order: the place to cancel, then the code.
        std::wprintf(L"event code %d\n", static_cast<int>(arguments->rgvarg[1].lVal));
        return S_OK;
    }
};

int Failed(const wchar_t* what, HRESULT result)
{
    std::wprintf(L"%ls: 0x%08x\n", what, static_cast<unsigned>(result));
    return 1;
}

int ShowStatus(const Reference<IHOLVAgent>& agent)
{
    BSTR version = nullptr;
    HRESULT result = agent->GetNeverSleepApiVersion(&version);
    if (FAILED(result)) return Failed(L"version", result);
    std::wprintf(L"interface %ls\n", version);
    SysFreeString(version);
    for (LONG feature = E_HOLV_STATE; feature <= E_BATTERY_PRESENT; ++feature) {
        LONG value = 0;
        result = agent->GetNeverSleepParam(static_cast<HOLVAgentFeatureEnum>(feature), &value);
        if (FAILED(result)) return Failed(kFeatures[feature], result);
        std::wprintf(L"%d %ls: %d\n", static_cast<int>(feature), kFeatures[feature],
                     static_cast<int>(value));
    }
    UINT start = 0, end = 0;
    result = agent->GetDoNotDisturbTimeInterval(&start, &end);
    if (FAILED(result)) return Failed(L"interval", result);
    std::wprintf(L"do not disturb from %02u:%02u to %02u:%02u\n", start / 60, start % 60, end / 60,
                 end % 60);
    return 0;
}

// Connects a sink, raises `code`, and delivers what comes in for a while.
int RaiseAndListen(const Reference<IHOLVAgent>& agent, LONG code, DWORD seconds)
{
    Reference<IConnectionPointContainer> container;
    HRESULT result = agent->QueryInterface(IID_IConnectionPointContainer, container.Receive());
    if (FAILED(result)) return Failed(L"connection points", result);
    Reference<IConnectionPoint> point;
    result = container->FindConnectionPoint(DIID__HOLVAgentSinkEvent, &point.object);
    if (FAILED(result)) return Failed(L"connection point", result);
    Reference<Sink> sink;
    sink.object = new Sink;
    DWORD cookie = 0;
    result = point->Advise(sink.object, &cookie);
    if (FAILED(result)) return Failed(L"advise", result);
    result = agent->put_NeverSleepEventCode(static_cast<HOLVAgentEventCodeEnum>(code));
    const ULONGLONG until = GetTickCount64() + 1000ull * seconds;
    while (SUCCEEDED(result) && GetTickCount64() < until) {
        MSG message;
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&message);
        Sleep(50);
    }
    point->Unadvise(cookie);
    return FAILED(result) ? Failed(L"event", result) : 0;
}

int Do(const Reference<IHOLVAgent>& agent, int argc, wchar_t** argv)
{
    const std::wstring command = argc > 1 ? argv[1] : L"status";
    const auto number = [&](int index) {
        return static_cast<LONG>(std::wcstol(argv[index], nullptr, 0));
    };
    HRESULT result = S_OK;
    if (command == L"status") return ShowStatus(agent);
    if (command == L"set" && argc == 4) {
        result = agent->SetNeverSleepParam(static_cast<HOLVAgentFeatureEnum>(number(2)), number(3));
    } else if (command == L"interval" && argc == 4) {
        result = agent->SetDoNotDisturbTimeInterval(static_cast<UINT>(number(2)),
                                                    static_cast<UINT>(number(3)));
    } else if (command == L"event" && argc == 3) {
        return RaiseAndListen(agent, number(2), 0);
    } else if (command == L"listen" && argc == 3) {
        return RaiseAndListen(agent, E_HOLV_EVENT_STATE_CHANGE, static_cast<DWORD>(number(2)));
    } else {
        std::wprintf(
            L"status | set FEATURE VALUE | interval START END | event CODE | "
            L"listen SECONDS\n");
        return 2;
    }
    return FAILED(result) ? Failed(command.c_str(), result) : 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    HRESULT result = CoInitialize(nullptr);
    if (FAILED(result)) return Failed(L"CoInitialize", result);
    int status = 0;
    {
        Reference<IHOLVAgent> agent;
        result = CoCreateInstance(CLSID_HOLVAgentApi, nullptr, CLSCTX_LOCAL_SERVER, IID_IHOLVAgent,
                                  agent.Receive());
        status = FAILED(result) ? Failed(L"the service", result) : Do(agent, argc, argv);
    }
    CoUninitialize();
    return status;
}
