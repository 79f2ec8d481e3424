// The type information of the control interface, and calls by number that use it.

#include <fstream>
#include <iterator>

#include "tests/agent_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

constexpr auto kException = static_cast<HRESULT>(0x80020009u);

TEST_F(AgentTest, TheDescriptionIsTheInterfacesContract)
{
    std::ifstream file(kDescription);
    const TypeLibrary library =
        ReadTypeLibrary(std::string(std::istreambuf_iterator<char>(file), {}));
    EXPECT_EQ(library.name, L"HOLVAgentLib");
    EXPECT_TRUE(library.guid == LIBID_HOLVAgentLib);
    EXPECT_EQ(library.major, kHOLVAgentLibMajor);
    EXPECT_EQ(library.minor, kHOLVAgentLibMinor);
    EXPECT_EQ(library.locale, kHOLVAgentLibLocale);
    EXPECT_EQ(library.help, L"Orbeq(R) Holv Technology 1.1 Type Library");
    EXPECT_EQ(library.imports, std::vector<std::wstring>{L"stdole2.tlb"});
    EXPECT_EQ(library.custom.at(*ParseGuid(L"A817E7A1-43FA-11D0-9E44-00AA00B6770A")),
              L"{D05B7F3A-2E96-4C18-8A4D-61C9B3E7052F}");

    const struct
    {
        const wchar_t* name;
        const wchar_t* guid;
        std::vector<LONG> numbers;
    } types[] = {
        {L"HOLVAgentFeatureEnum",
         L"2F6A9C14-D83B-4E57-A90E-5B17C4E2D3A6",
         {E_HOLV_STATE, E_AUDIO, E_DONOTDISTURB, E_APPLICATION_SUSPEND, E_SHOW_LYNC_CONTROLS,
          E_TURN_ON_DISPLAY_ON_LYNC, E_ENTER_S3_ON_DND, E_ENABLE_HOLV_ON_DC, E_BATTERY_PRESENT}},
        {L"HOLVAgentApiReturnCodeEnum",
         L"8B3D5E27-1C4F-4A96-BE82-0D6F93A7C145",
         {E_SUCCESS, E_FAILURE}},
        {L"HOLVAgentEventCodeEnum",
         L"C71E4B90-6A2D-45F8-93B1-E84D0C5A2F37",
         {E_HOLV_EVENT_UPDATE_AVAILABLE, E_HOLV_EVENT_STATE_CHANGE, E_HOLV_EVENT_SERVICE_STOP}},
        {L"_HOLVAgentSinkEvent", L"5B0E8D34-A7C2-4E91-8F36-D1A94C27B650", {}},
        {L"HOLVAgentApi", L"3E9F1B20-6C4A-4D8E-B7F2-95A0C1D3E864", {}},
        {L"IHOLVAgent", L"9D4E2C71-5A8B-4F3E-B0C6-73E1A2D94F58", {}},
    };
    ASSERT_EQ(library.types.size(), std::size(types));
    for (std::size_t i = 0; i < std::size(types); ++i) {
        const TypeDescription& type = library.types[i];
        EXPECT_EQ(type.name, types[i].name);
        EXPECT_TRUE(type.guid == *ParseGuid(types[i].guid)) << i;
        std::vector<LONG> numbers;
        for (const NamedNumber& number : type.numbers) numbers.push_back(number.value);
        EXPECT_EQ(numbers, types[i].numbers) << i;
    }
    EXPECT_EQ(static_cast<LONG>(E_FAILURE), -2147213312);
    EXPECT_TRUE(library.types[3].guid == DIID__HOLVAgentSinkEvent);
    EXPECT_TRUE(library.types[4].guid == CLSID_HOLVAgentApi);
    EXPECT_TRUE(library.types[5].guid == IID_IHOLVAgent);
    for (const wchar_t* flag : {L"dual", L"nonextensible", L"oleautomation"}) {
        EXPECT_TRUE(library.types[5].Has(flag));
    }
    const Member& event = library.types[3].members.at(0);
    EXPECT_EQ(event.name, L"HOLVAgentEventChanged");
    EXPECT_EQ(event.id, DISPID_HOLVAgentEventChanged);
    ASSERT_EQ(event.parameters.size(), 2u);
    EXPECT_EQ(event.parameters[1].type.type, VT_BOOL);
    EXPECT_TRUE(event.parameters[1].in && event.parameters[1].out);
}

// Says which of its slots was called.
class Slots final : public CountedObject<IHOLVAgent, IID_IHOLVAgent, Slots>
{
public:
    HRESULT GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    HRESULT GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    HRESULT Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override
    {
        return E_NOTIMPL;
    }
    HRESULT SetNeverSleepParam(HOLVAgentFeatureEnum a, LONG b) override
    {
        return Note("set " + std::to_string(a) + " " + std::to_string(b));
    }
    HRESULT SetDoNotDisturbTimeInterval(UINT a, UINT b) override
    {
        return Note("interval " + std::to_string(a) + " " + std::to_string(b));
    }
    HRESULT GetNeverSleepApiVersion(BSTR*) override { return Note("version"); }
    HRESULT GetNeverSleepParam(HOLVAgentFeatureEnum a, LONG* value) override
    {
        *value = 7;
        return Note("get " + std::to_string(a));
    }
    HRESULT get_NeverSleepEventCode(HOLVAgentEventCodeEnum* code) override
    {
        *code = E_HOLV_EVENT_SERVICE_STOP;
        return Note("code");
    }
    HRESULT put_NeverSleepEventCode(HOLVAgentEventCodeEnum code) override
    {
        return Note("code " + std::to_string(code));
    }
    HRESULT GetDoNotDisturbTimeInterval(UINT*, UINT*) override
    {
        Note("what interval");
        return E_INVALIDARG;
    }

    std::string called;

private:
    HRESULT Note(const std::string& what)
    {
        called = what;
        return S_OK;
    }
};

TEST_F(AgentTest, EachMemberIsCalledThroughItsSlotWithArgumentsOfItsTypes)
{
    RunInApartment([&] {
        OwnedInterface<ITypeLib> library;
        ASSERT_EQ(LoadRegTypeLib(LIBID_HOLVAgentLib, 1, 0, 1033, library.Receive()), S_OK);
        OwnedInterface<ITypeInfo> info;
        ASSERT_EQ(library.Get()->GetTypeInfoOfGuid(IID_IHOLVAgent, info.Receive()), S_OK);
        OwnedInterface<Slots> slots(new Slots);
        LONG value = 0;
        UINT start = 0, end = 0;
        BSTR text = nullptr;
        VARIANT two{}, yes{}, many{};
        two.vt = VT_R8;
        two.dblVal = 2.4;
        yes.vt = VT_BOOL;
        yes.boolVal = VARIANT_TRUE;
        many.vt = VT_R8;
        many.dblVal = 5e9;
        VARIANT inner = Number(0);
        const struct
        {
            DISPID member;
            WORD flags;
            std::vector<VARIANT> arguments;  // in reverse order
            std::string called;
            HRESULT result;
            std::vector<DISPID> named = {};
        } cases[] = {
            {1, DISPATCH_METHOD, {Number(1), Number(8)}, "set 8 1", S_OK},
            {1, DISPATCH_METHOD, {yes, two}, "set 2 -1", S_OK},
            {1, DISPATCH_METHOD, {Number(3), Number(4)}, "set 3 4", S_OK, {0, 1}},
            {1, DISPATCH_METHOD, {Number(1)}, "", DISP_E_BADPARAMCOUNT},
            {1, DISPATCH_METHOD, {many, Number(1)}, "", DISP_E_OVERFLOW},
            {1, DISPATCH_METHOD, {Number(1), Number(2)}, "", DISP_E_PARAMNOTFOUND, {5}},
            {1, DISPATCH_PROPERTYGET, {Number(1), Number(8)}, "", DISP_E_MEMBERNOTFOUND},
            {2, DISPATCH_METHOD, {Number(360), Number(1320)}, "interval 1320 360", S_OK},
            {2, DISPATCH_METHOD, {Number(-1), Number(0)}, "", DISP_E_OVERFLOW},
            {3, DISPATCH_METHOD, {Place(VT_BSTR, &text)}, "version", S_OK},
            {3, DISPATCH_METHOD, {Number(1)}, "", DISP_E_TYPEMISMATCH},
            {4, DISPATCH_METHOD, {Place(VT_I4, &value), Number(3)}, "get 3", S_OK},
            {4,
             DISPATCH_METHOD | DISPATCH_PROPERTYGET,
             {Place(VT_VARIANT, &inner), Number(3)},
             "",
             DISP_E_TYPEMISMATCH},
            {4, DISPATCH_METHOD, {Place(VT_I2, &value), Number(3)}, "", DISP_E_TYPEMISMATCH},
            {5, DISPATCH_PROPERTYGET, {}, "code", S_OK},
            {5, DISPATCH_PROPERTYPUT, {Number(1)}, "code 1", S_OK, {DISPID_PROPERTYPUT}},
            {5, DISPATCH_PROPERTYPUT, {Number(1)}, "", DISP_E_PARAMNOTOPTIONAL},
            {6,
             DISPATCH_METHOD,
             {Place(VT_UINT, &end), Place(VT_UI4, &start)},
             "what interval",
             kException},
            {7, DISPATCH_METHOD, {}, "", DISP_E_MEMBERNOTFOUND},
        };
        for (const auto& c : cases) {
            slots.Get()->called.clear();
            std::vector<VARIANT> arguments = c.arguments;
            std::vector<DISPID> named = c.named;
            DISPPARAMS parameters{arguments.data(), named.data(),
                                  static_cast<UINT>(arguments.size()),
                                  static_cast<UINT>(named.size())};
            VARIANT result{};
            EXPECT_EQ(info.Get()->Invoke(slots.Get(), c.member, c.flags, &parameters, &result,
                                         nullptr, nullptr),
                      c.result)
                << c.member << " " << c.called;
            EXPECT_EQ(slots.Get()->called, c.called) << c.member;
            if (c.called == "code") {
                EXPECT_EQ(result.vt, VT_I4);
                EXPECT_EQ(result.lVal, 2);
            }
        }
        EXPECT_EQ(value, 7);
        EXPECT_EQ(inner.lVal, 0) << "a variant is no place for a number";
    });
}

// --- The object ---

TEST_F(AgentTest, AnObjectAnswersForItsInterfacesAndItsTypeInformation)
{
    RunInApartment([&] {
        const OwnedInterface<IHOLVAgent> object = MakeObject();
        const struct
        {
            const IID& id;
            HRESULT result;
        } cases[] = {{IID_IUnknown, S_OK},
                     {IID_IDispatch, S_OK},
                     {IID_IHOLVAgent, S_OK},
                     {IID_IConnectionPointContainer, S_OK},
                     {IID_IClassFactory, E_NOINTERFACE},
                     {DIID__HOLVAgentSinkEvent, E_NOINTERFACE}};
        OwnedInterface<IUnknown> first;
        object.Get()->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(first.Receive()));
        for (const auto& c : cases) {
            OwnedInterface<IUnknown> found, identity;
            EXPECT_EQ(object.Get()->QueryInterface(c.id, reinterpret_cast<void**>(found.Receive())),
                      c.result);
            if (!found) continue;
            found.Get()->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(identity.Receive()));
            EXPECT_EQ(identity.Get(), first.Get());
        }
        UINT count = 0;
        EXPECT_EQ(object.Get()->GetTypeInfoCount(&count), S_OK);
        EXPECT_EQ(count, 1u);
        EXPECT_EQ(object.Get()->GetTypeInfoCount(nullptr), E_POINTER);
        OwnedInterface<ITypeInfo> info;
        EXPECT_EQ(object.Get()->GetTypeInfo(1, 0, info.Receive()), DISP_E_BADINDEX);
        EXPECT_EQ(object.Get()->GetTypeInfo(0, 0, nullptr), E_POINTER);
        EXPECT_EQ(object.Get()->GetTypeInfo(0, 0, info.Receive()), S_OK);
        wchar_t member[] = L"getneversleepparam", parameter[] = L"nParamId", wrong[] = L"None";
        LPOLESTR names[] = {member, parameter, wrong};
        DISPID ids[3];
        EXPECT_EQ(object.Get()->GetIDsOfNames(IID_NULL, names, 3, 0, ids), DISP_E_UNKNOWNNAME);
        EXPECT_EQ(std::vector(ids, ids + 3), (std::vector<DISPID>{4, 0, DISPID_UNKNOWN}));
        EXPECT_EQ(module.locks, 1);
    });
}

TEST_F(AgentTest, WithoutTheRegisteredLibraryNothingIsCalledByNumber)
{
    RunAsProgram([] {
        EXPECT_EQ(UnregisterAgentTypeLibrary(false), S_OK);
        EXPECT_EQ(UnregisterAgentTypeLibrary(false), TYPE_E_REGISTRYACCESS);
    });
    EXPECT_FALSE(pc.registry.HasKey(LR"(HKCR\TypeLib\{C4D72A19-3B8E-4F05-9A61-E2B7D048F1C3})"));
    EXPECT_FALSE(pc.registry.HasKey(LR"(HKCR\Interface\{9D4E2C71-5A8B-4F3E-B0C6-73E1A2D94F58})"));
    RunInApartment([&] {
        const OwnedInterface<IHOLVAgent> object = MakeObject();
        EXPECT_EQ(Call(*object.Get(), 5, DISPATCH_PROPERTYGET, {}), TYPE_E_LIBNOTREGISTERED);
    });
    RunAsProgram([] { EXPECT_EQ(RegisterAgentTypeLibrary(true), S_OK); });
    EXPECT_TRUE(pc.registry.HasKey(
        LR"(HKCU\Software\Classes\TypeLib\{C4D72A19-3B8E-4F05-9A61-E2B7D048F1C3}\1.1)"));
    RunInApartment([&] {
        const OwnedInterface<IHOLVAgent> object = MakeObject();
        EXPECT_EQ(Call(*object.Get(), 5, DISPATCH_PROPERTYGET, {}), S_OK);
    });
}

// An outer object, which aggregates the inner one.

}  // namespace
