// COM as a program finds it: what a process sets once, and what it must give up again.

#include <cwchar>
#include <string>

#include "platform/audio.h"
#include "platform/automation.h"
#include "platform/com.h"
#include "platform/counted_object.h"
#include "platform/owned.h"
#include "platform/rpc.h"
#include "platform/virtual/com/com.h"
#include "tests/virtual_pc_test.h"

using namespace virtual_pc;

namespace {

constexpr CLSID kClass{
    0x9C2E4D10, 0x77A1, 0x4F3B, {0x91, 0x2A, 0x60, 0x5B, 0x7E, 0x11, 0x42, 0x08}};

class Factory final : public CountedObject<IClassFactory, IID_IClassFactory, Factory>
{
public:
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID, void** object) override
    {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

class ComTest : public VirtualPcTest
{
protected:
    static HRESULT SetSecurity(DWORD authentication = RPC_C_AUTHN_LEVEL_NONE)
    {
        return CoInitializeSecurity(nullptr, -1, nullptr, nullptr, authentication,
                                    RPC_C_IMP_LEVEL_IDENTIFY, nullptr, EOAC_NONE, nullptr);
    }

    static DWORD Register()
    {
        DWORD registration = 0;
        auto* factory = new Factory;
        EXPECT_EQ(CoRegisterClassObject(kClass, factory, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE,
                                        &registration),
                  S_OK);
        factory->Release();
        return registration;
    }

    std::optional<Com::CallSecurity> Security() const
    {
        const Hold hold(pc);
        return pc.com.SecurityOf(Thread::Self()->process);
    }
};

TEST_F(ComTest, SecurityIsSetOnceInAProcessAndBeforeAnInterfaceLeavesItsApartment)
{
    RunAsProcess([&] {
        EXPECT_EQ(SetSecurity(), CO_E_NOTINITIALIZED);
        CoInitialize(nullptr);
        EXPECT_EQ(CoInitializeSecurity(nullptr, -1, nullptr, &pc, 1, 2, nullptr, 0, nullptr),
                  E_INVALIDARG);
        void* sound = nullptr;
        EXPECT_EQ(CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL,
                                   IID_IMMDeviceEnumerator, &sound),
                  S_OK);
        static_cast<IUnknown*>(sound)->Release();
        EXPECT_FALSE(Security()) << "an object of the process's own settles nothing";
        EXPECT_EQ(SetSecurity(), S_OK);
        EXPECT_EQ(SetSecurity(6), RPC_E_TOO_LATE);
        ASSERT_TRUE(Security());
        EXPECT_EQ(Security()->authentication, RPC_C_AUTHN_LEVEL_NONE);
        EXPECT_EQ(Security()->impersonation, RPC_C_IMP_LEVEL_IDENTIFY);
        EXPECT_EQ(Security()->services, -1);
        EXPECT_FALSE(Security()->descriptor);
        CoUninitialize();
    });
    RunAsProcess([&] {
        CoInitialize(nullptr);
        const DWORD registration = Register();
        EXPECT_EQ(SetSecurity(), RPC_E_TOO_LATE);
        EXPECT_TRUE(Security()->implicit);
        EXPECT_EQ(CoRevokeClassObject(registration), S_OK);
        CoUninitialize();
    });
}

TEST_F(ComTest, AThreadEntersItsApartmentAgainButNoneOfTheOtherKind)
{
    RunAsProcess([] {
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_FALSE);
        EXPECT_EQ(CoInitialize(nullptr), RPC_E_CHANGED_MODE);
        CoUninitialize();
        EXPECT_EQ(CoInitialize(nullptr), RPC_E_CHANGED_MODE);
        CoUninitialize();
        EXPECT_EQ(CoInitialize(nullptr), S_OK);
        CoUninitialize();
    });
}

TEST_F(ComTest, AClassThatIsNotRevokedCountsAsLeftOpen)
{
    left_open_is_expected = true;
    RunAsProcess([&] {
        CoInitialize(nullptr);
        const DWORD revoked = Register();
        EXPECT_EQ(CoRevokeClassObject(revoked), S_OK);
        Register();
        CoUninitialize();
    });
    ASSERT_EQ(pc.processes().back()->left_open().size(), 1u);
    EXPECT_EQ(pc.processes().back()->left_open()[0].kind, "registered class object");
}

TEST_F(ComTest, BadArgumentsAreRefused)
{
    RunAsProcess([] {
        void* object = nullptr;
        GUID id{};
        EXPECT_EQ(CoCreateInstance(kClass, nullptr, CLSCTX_LOCAL_SERVER, IID_IUnknown, &object),
                  CO_E_NOTINITIALIZED);
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        object = &id;
        const HRESULT answers[][2] = {
            {CoCreateInstance(kClass, nullptr, CLSCTX_LOCAL_SERVER, IID_IUnknown, &object),
             REGDB_E_CLASSNOTREG},
            {CoCreateInstance(kClass, nullptr, CLSCTX_LOCAL_SERVER, IID_IUnknown, nullptr),
             E_POINTER},
            {CoCreateGuid(nullptr), E_INVALIDARG},
            {CoRevokeClassObject(999), E_INVALIDARG},
            {CoResumeClassObjects(), S_OK},
            {CLSIDFromProgID(L"no.such", &id), CO_E_CLASSSTRING},
            {CLSIDFromProgID(nullptr, &id), E_INVALIDARG},
            {LoadTypeLib(nullptr, reinterpret_cast<ITypeLib**>(&object)), E_INVALIDARG},
            {LoadTypeLib(LR"(C:\none.tlb)", reinterpret_cast<ITypeLib**>(&object)),
             TYPE_E_CANTLOADLIBRARY},
            {LoadRegTypeLib(kClass, 1, 0, 0, reinterpret_cast<ITypeLib**>(&object)),
             TYPE_E_LIBNOTREGISTERED},
            {UuidFromStringW(nullptr, &id), RPC_S_OK},
            {UuidFromStringW(const_cast<wchar_t*>(L""), &id), RPC_S_INVALID_STRING_UUID},
            {UuidFromStringW(const_cast<wchar_t*>(L"{00000000-0000-0000-0000-000000000000}"), &id),
             RPC_S_INVALID_STRING_UUID},
        };
        for (const auto& [answer, expected] : answers) {
            EXPECT_EQ(answer, expected) << &answer - &answers[0][0];
        }
        EXPECT_EQ(object, nullptr);
        EXPECT_EQ(CoAddRefServerProcess(), 1u);
        EXPECT_EQ(CoReleaseServerProcess(), 0u);
        OwnedRpcString text;
        UuidToStringW(nullptr, text.Receive());
        EXPECT_STREQ(text.Get(), L"00000000-0000-0000-0000-000000000000");
        CoUninitialize();
    });
}

VARIANT Of(VARTYPE type, LONG number)
{
    VARIANT value{};
    value.vt = type;
    value.lVal = number;
    return value;
}

VARIANT Of(double number)
{
    VARIANT value{};
    value.vt = VT_R8;
    value.dblVal = number;
    return value;
}

VARIANT Of(const wchar_t* text)
{
    VARIANT value{};
    value.vt = VT_BSTR;
    value.bstrVal = SysAllocString(text);
    return value;
}

// A converted value as text, or the code of the failure; it releases both values.
std::wstring Converted(VARIANT value, VARTYPE type)
{
    VARIANT made{}, shown{};
    HRESULT result = VariantChangeType(&made, &value, 0, type);
    if (SUCCEEDED(result)) result = VariantChangeType(&shown, &made, 0, VT_BSTR);
    wchar_t code[12];
    std::swprintf(code, std::size(code), L"%X", static_cast<unsigned>(result));
    std::wstring text = FAILED(result) ? code : std::wstring(shown.bstrVal);
    for (VARIANT* each : {&value, &made, &shown}) VariantClear(each);
    return text;
}

TEST_F(ComTest, ValuesAreConvertedAsAutomationDoes)
{
    constexpr const wchar_t *kMismatch = L"80020005", *kOverflow = L"8002000A";
    RunAsProcess([&] {
        const struct
        {
            VARIANT value;
            VARTYPE type;
            const wchar_t* converted;
        } cases[] = {
            {Of(L" 12 "), VT_I4, L"12"},
            {Of(L"1e2"), VT_I4, L"100"},
            {Of(L"&H10"), VT_I4, L"16"},
            {Of(L"0x10"), VT_I4, kMismatch},
            {Of(L"12x"), VT_I4, kMismatch},
            {Of(L""), VT_I4, kMismatch},
            {Of(L"inf"), VT_R8, kMismatch},
            {Of(L"nan"), VT_R8, kMismatch},
            {Of(VT_BSTR, 0), VT_I4, kMismatch},
            {Of(L"2.5"), VT_I4, L"2"},
            {Of(L"70000"), VT_I2, kOverflow},
            {Of(VT_I4, -1), VT_UI4, kOverflow},
            {Of(L"fAlse"), VT_BOOL, L"0"},
            {Of(L"#TRUE#"), VT_BOOL, L"-1"},
            {Of(L"5"), VT_BOOL, L"-1"},
            {Of(L"x"), VT_BOOL, kMismatch},
            {Of(VT_I4, 5), VT_BOOL, L"-1"},
            {Of(VT_BOOL, 0xFFFF), VT_I4, L"-1"},
            {Of(VT_BOOL, 0), VT_BSTR, L"0"},
            {Of(VT_EMPTY, 0), VT_BSTR, L""},
            {Of(VT_EMPTY, 0), VT_I4, L"0"},
            {Of(VT_NULL, 0), VT_I4, kMismatch},
            {Of(VT_ERROR, 5), VT_I4, kMismatch},
            {Of(VT_I4, 256), VT_UI1, kOverflow},
            {Of(0.5), VT_I4, L"0"},
            {Of(1.5), VT_I4, L"2"},
            {Of(1e20), VT_BSTR, L"1E+20"},
            {Of(1e-5), VT_BSTR, L"1E-05"},
            {Of(1e10), VT_I4, kOverflow},
            {Of(VT_I4, 5), VT_DISPATCH, kMismatch},
        };
        for (const auto& c : cases)
            EXPECT_EQ(Converted(c.value, c.type), c.converted) << &c - cases;
    });
}

TEST_F(ComTest, ValuesOfNoTypeAreRefusedAndNullsPass)
{
    RunAsProcess([] {
        VARIANT unknown = Of(77, 0), made{}, none = Of(VT_UNKNOWN, 0);
        none.punkVal = nullptr;
        EXPECT_EQ(VariantChangeType(&made, &unknown, 0, VT_I4), DISP_E_BADVARTYPE);
        EXPECT_EQ(VariantClear(&unknown), DISP_E_BADVARTYPE);
        EXPECT_EQ(VariantChangeType(&made, &none, 0, VT_DISPATCH), S_OK);
        EXPECT_EQ(SysAllocString(nullptr), nullptr);
        EXPECT_EQ(SysStringLen(nullptr), 0u);
        SysFreeString(nullptr);
    });
}

}  // namespace
