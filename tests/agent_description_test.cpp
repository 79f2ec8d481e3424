// The type information of the control interface, and calls by number that use it.

#include <fstream>
#include <iterator>

#include "tests/agent_test.h"

using namespace virtual_pc;

namespace {

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
    const std::tuple<const wchar_t*, const wchar_t*, std::vector<LONG>> types[] = {
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
        const auto& [name, guid, expected] = types[i];
        EXPECT_EQ(type.name, name);
        EXPECT_TRUE(type.guid == *ParseGuid(guid)) << i;
        EXPECT_TRUE(std::ranges::equal(type.numbers, expected, {}, &NamedNumber::value)) << i;
    }
    EXPECT_EQ(static_cast<LONG>(E_FAILURE), -2147213312);
    EXPECT_TRUE(library.types[3].guid == DIID__HOLVAgentSinkEvent);
    EXPECT_TRUE(library.types[4].guid == CLSID_HOLVAgentApi);
    EXPECT_TRUE(library.types[5].guid == IID_IHOLVAgent);
    const Member& event = library.types[3].members.at(0);
    EXPECT_EQ(event.id, DISPID_HOLVAgentEventChanged);
    ASSERT_EQ(event.parameters.size(), 2u);
    EXPECT_EQ(event.parameters[1].type.type, VT_BOOL);
    EXPECT_TRUE(event.parameters[1].in && event.parameters[1].out);
}

TEST_F(AgentTest, AnObjectAnswersForItsInterfacesAndItsTypeInformation)
{
    RunInApartment([&] {
        const OwnedInterface<IHOLVAgent> object = MakeObject();
        const std::pair<IID, HRESULT> cases[] = {{IID_IUnknown, S_OK},
                                                 {IID_IDispatch, S_OK},
                                                 {IID_IHOLVAgent, S_OK},
                                                 {IID_IConnectionPointContainer, S_OK},
                                                 {IID_IClassFactory, E_NOINTERFACE},
                                                 {DIID__HOLVAgentSinkEvent, E_NOINTERFACE}};
        OwnedInterface<IUnknown> first;
        object.Get()->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(first.Receive()));
        for (const auto& [id, result] : cases) {
            OwnedInterface<IUnknown> found, identity;
            EXPECT_EQ(object.Get()->QueryInterface(id, reinterpret_cast<void**>(found.Receive())),
                      result);
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
    EXPECT_EQ(pc.registry.GetString(
                  LR"(HKCR\TypeLib\{C4D72A19-3B8E-4F05-9A61-E2B7D048F1C3}\1.1\HELPDIR)", L""),
              L"C:\\Program Files\\Orbeq\\Holv\\");
    RunInApartment([&] {
        const OwnedInterface<IHOLVAgent> object = MakeObject();
        EXPECT_EQ(Call(*object.Get(), 5, DISPATCH_PROPERTYGET, {}), S_OK);
    });
}

}  // namespace
