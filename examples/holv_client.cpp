// A client of the Holv service in C++: prints the status, switches a feature, sets the
// do-not-disturb interval, and raises event codes and listens to them.
//
//     holv_client                           prints the status
//     holv_client get FEATURE               reads a feature, by its number in the status
//     holv_client set FEATURE VALUE         switches it
//     holv_client interval START END        in minutes since midnight
//     holv_client event CODE [refuse]       raises an event code, receives it, and may refuse it
//
// It calls by name, like a script, and therefore needs no header of the service. Build it with any
// compiler for Windows:
//
//     x86_64-w64-mingw32-g++ -std=c++20 -municode -static holv_client.cpp -lole32 -loleaut32 -luuid
//     cl /std:c++20 /EHsc holv_client.cpp ole32.lib oleaut32.lib

#include <ocidl.h>
#include <oleauto.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>
#include <vector>

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

// The interface of the service's events and its one member: HOLVAgentEventChanged(code, cancel).
constexpr GUID kEvents{
    0x5b0e8d34, 0xa7c2, 0x4e91, {0x8f, 0x36, 0xd1, 0xa9, 0x4c, 0x27, 0xb6, 0x50}};
constexpr DISPID kEventChanged = 1;

VARIANT Number(long value)
{
    VARIANT number{};
    number.vt = VT_I4;
    number.lVal = value;
    return number;
}

// An argument through which a call returns a value of this type.
VARIANT Place(VARTYPE type, void* value)
{
    VARIANT place{};
    place.vt = static_cast<VARTYPE>(VT_BYREF | type);
    place.byref = value;
    return place;
}

// Calls a member by its name. The arguments stand in reverse order, as IDispatch requires.
HRESULT Call(IDispatch* agent, const wchar_t* name, WORD kind, std::vector<VARIANT> reversed,
             VARIANT* result = nullptr)
{
    LPOLESTR text = const_cast<LPOLESTR>(name);
    DISPID member = 0;
    HRESULT status = agent->GetIDsOfNames(IID_NULL, &text, 1, LOCALE_USER_DEFAULT, &member);
    if (FAILED(status)) return status;
    DISPID put = DISPID_PROPERTYPUT;
    DISPPARAMS arguments{reversed.data(), nullptr, static_cast<UINT>(reversed.size()), 0};
    if (kind == DISPATCH_PROPERTYPUT) {
        arguments.rgdispidNamedArgs = &put;
        arguments.cNamedArgs = 1;
    }
    return agent->Invoke(member, IID_NULL, LOCALE_USER_DEFAULT, kind, &arguments, result, nullptr,
                         nullptr);
}

// Prints the event codes that it receives, and refuses them if told to.
class Sink final : public IDispatch
{
public:
    explicit Sink(bool refuses) : m_refuses(refuses) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override
    {
        const bool known = id == IID_IUnknown || id == IID_IDispatch || id == kEvents;
        *object = known ? static_cast<IDispatch*>(this) : nullptr;
        return known ? S_OK : E_NOINTERFACE;
    }
    // The sink is static, so its references need not be counted.
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

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
    HRESULT STDMETHODCALLTYPE Invoke(DISPID member, REFIID, LCID, WORD, DISPPARAMS* reversed,
                                     VARIANT*, EXCEPINFO*, UINT*) override
    {
        if (member != kEventChanged || reversed->cArgs != 2) return DISP_E_MEMBERNOTFOUND;
        std::wprintf(L"heard event code %ld%ls\n", reversed->rgvarg[1].lVal,
                     m_refuses ? L" and refused it" : L"");
        if (m_refuses) *reversed->rgvarg[0].pboolVal = VARIANT_TRUE;
        return S_OK;
    }

private:
    const bool m_refuses;
};

HRESULT GetFeature(IDispatch* agent, long feature, long* value)
{
    return Call(agent, L"GetNeverSleepParam", DISPATCH_METHOD,
                {Place(VT_I4, value), Number(feature)});
}

HRESULT ShowStatus(IDispatch* agent)
{
    BSTR version = nullptr;
    HRESULT status =
        Call(agent, L"GetNeverSleepApiVersion", DISPATCH_METHOD, {Place(VT_BSTR, &version)});
    if (FAILED(status)) return status;
    std::wprintf(L"version %ls\n", version);
    SysFreeString(version);
    for (long feature = 0; feature < static_cast<long>(std::size(kFeatures)); ++feature) {
        long value = 0;
        status = GetFeature(agent, feature, &value);
        if (FAILED(status)) return status;
        std::wprintf(L"%ld %ls: %ld\n", feature, kFeatures[feature], value);
    }
    UINT start = 0, end = 0;
    status = Call(agent, L"GetDoNotDisturbTimeInterval", DISPATCH_METHOD,
                  {Place(VT_UI4, &end), Place(VT_UI4, &start)});
    if (FAILED(status)) return status;
    std::wprintf(L"do not disturb from %02u:%02u to %02u:%02u\n", start / 60, start % 60, end / 60,
                 end % 60);
    return S_OK;
}

HRESULT ShowEventCode(IDispatch* agent)
{
    VARIANT code{};
    const HRESULT status = Call(agent, L"NeverSleepEventCode", DISPATCH_PROPERTYGET, {}, &code);
    if (SUCCEEDED(status)) std::wprintf(L"event code %ld\n", code.lVal);
    return status;
}

// Connects a sink, raises `code`, and prints the result. The sink is called while this thread waits
// for the service's answer.
HRESULT RaiseEvent(IDispatch* agent, long code, bool refuse)
{
    IConnectionPointContainer* container = nullptr;
    HRESULT status =
        agent->QueryInterface(IID_IConnectionPointContainer, reinterpret_cast<void**>(&container));
    if (FAILED(status)) return status;
    IConnectionPoint* point = nullptr;
    status = container->FindConnectionPoint(kEvents, &point);
    container->Release();
    if (FAILED(status)) return status;

    static Sink sink(refuse);
    DWORD cookie = 0;
    status = point->Advise(&sink, &cookie);
    if (SUCCEEDED(status)) {
        status = Call(agent, L"NeverSleepEventCode", DISPATCH_PROPERTYPUT, {Number(code)});
        if (SUCCEEDED(status)) status = ShowEventCode(agent);
        point->Unadvise(cookie);
    }
    point->Release();
    return status;
}

HRESULT Run(IDispatch* agent, int argc, wchar_t** argv)
{
    const std::wstring command = argc > 1 ? argv[1] : L"status";
    const auto number = [&](int index) { return std::wcstol(argv[index], nullptr, 0); };
    if (command == L"status") return ShowStatus(agent);
    if (command == L"get" && argc == 3) {
        long value = 0;
        const HRESULT status = GetFeature(agent, number(2), &value);
        if (SUCCEEDED(status)) std::wprintf(L"%ld\n", value);
        return status;
    }
    if ((command == L"set" || command == L"interval") && argc == 4) {
        return Call(agent,
                    command == L"set" ? L"SetNeverSleepParam" : L"SetDoNotDisturbTimeInterval",
                    DISPATCH_METHOD, {Number(number(3)), Number(number(2))});
    }
    if (command == L"event" && argc >= 3) {
        return RaiseEvent(agent, number(2), argc > 3 && argv[3] == std::wstring(L"refuse"));
    }
    std::wprintf(
        L"status | get FEATURE | set FEATURE VALUE | interval START END | event CODE [refuse]\n");
    return E_INVALIDARG;
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    HRESULT status = CoInitialize(nullptr);
    CLSID agent_class{};
    if (SUCCEEDED(status)) status = CLSIDFromProgID(L"HOLVAgentLib.HOLVAgentLib", &agent_class);
    IDispatch* agent = nullptr;
    if (SUCCEEDED(status)) {
        status = CoCreateInstance(agent_class, nullptr, CLSCTX_LOCAL_SERVER, IID_IDispatch,
                                  reinterpret_cast<void**>(&agent));
    }
    if (SUCCEEDED(status)) {
        status = Run(agent, argc, argv);
        agent->Release();
        CoUninitialize();
    }
    if (FAILED(status)) std::wprintf(L"error 0x%08lx\n", static_cast<unsigned long>(status));
    return FAILED(status) ? 1 : 0;
}
