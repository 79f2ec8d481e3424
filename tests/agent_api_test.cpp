// The control interface: what it is described as, what each of its members does, its events, and
// how a program gets at it from another process.

#include <array>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>

#include "api/agent_api.h"
#include "api/agent_features.h"
#include "api/agent_module.h"
#include "api/class_objects.h"
#include "api/holv_agent_api.h"
#include "api/type_library.h"
#include "log/log.h"
#include "pc/agent_client.h"
#include "pc/commands.h"
#include "platform/counted_object.h"
#include "platform/message.h"
#include "platform/owned.h"
#include "settings/settings.h"
#include "state/global_events.h"
#include "state/never_sleep_state.h"
#include "tests/virtual_pc_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

const std::filesystem::path kDescription =
    std::filesystem::path(HOLV_SOURCE_DIR) / "api" / "HOLVAgentLib.idl";
constexpr const wchar_t* kClassId = L"{3E9F1B20-6C4A-4D8E-B7F2-95A0C1D3E864}";
constexpr const wchar_t* kAppId = L"{7A31C5E2-90D4-4B6E-A1F3-2C8D5E9B0A47}";
// The memory of a server that is ended is never freed; the leak sanitizer must not wonder.
extern "C" void __lsan_disable() __attribute__((weak));
extern "C" void __lsan_enable() __attribute__((weak));

constexpr auto kException = static_cast<HRESULT>(0x80020009u);

VARIANT Number(LONG number)
{
    VARIANT value{};
    value.vt = VT_I4;
    value.lVal = number;
    return value;
}

template <class T>
VARIANT Place(VARTYPE type, T* place)
{
    VARIANT value{};
    value.vt = static_cast<VARTYPE>(VT_BYREF | type);
    value.byref = place;
    return value;
}

// Counts what keeps the process alive, and ends its message loop when nothing does any more.
class TestModule final : public AgentModule
{
public:
    void Lock() override { ++locks; }
    void Unlock() override
    {
        if (--locks == 0 && ends_with_clients) PostThreadMessageW(thread, WM_QUIT, 0, 0);
    }

    std::atomic<int> locks = 0;
    std::atomic<bool> ends_with_clients = false;
    std::atomic<DWORD> thread = 0;
};

class AgentTest : public VirtualPcTest
{
protected:
    explicit AgentTest(const Machine::Options& options = {.free = kRunFree})
        : VirtualPcTest(options)
    {
        g_dwLoggingLevel = 6;
        g_dwLoggingEnabled = kLogToDebugger;
        SetAgentModule(&module);
        pc.registry.SetDword(kUserKey, L"LoggingLevel", 6);
        pc.com.type_libraries.Add(Image{}.path, kDescription);
        pc.Install(Image{}.path, [this] { return Serve(); });
        Register();
    }
    ~AgentTest() override { SetAgentModule(nullptr); }

    void TearDown() override
    {
        clients.clear();
        StopServer();
        VirtualPcTest::TearDown();
        EXPECT_EQ(module.locks, 0) << "an object of the interface is left";
    }

    // The program's entries in the registry, and its type library.
    void Register()
    {
        const std::wstring key = LR"(HKCR\CLSID\)" + std::wstring(kClassId);
        pc.registry.SetString(LR"(HKCR\HOLVAgentLib.HOLVAgentLib\CLSID)", L"", kClassId);
        pc.registry.SetString(key, L"AppID", kAppId);
        pc.registry.SetString(key + LR"(\LocalServer32)", L"", Image{}.path);
        RunAsProgram([] { EXPECT_EQ(RegisterAgentTypeLibrary(false), S_OK); });
    }

    // Runs a body as the service's program, to its end.
    void RunAsProgram(std::function<void()> body)
    {
        pc.Install(Image{}.path, [&] {
            body();
            return 0;
        });
        pc.RunUntilEnd(*pc.StartInstalled(Image{}.path, L"HOLVService.exe"));
        pc.Install(Image{}.path, [this] { return Serve(); });
    }

    // What the service's program does as a server: a single-threaded apartment and its loop.
    int Serve()
    {
        struct Unseen
        {
            explicit Unseen(bool is) : unseen(is && __lsan_disable)
            {
                if (unseen) __lsan_disable();
            }
            ~Unseen()
            {
                if (unseen) __lsan_enable();
            }
            const bool unseen;
        } unseen(left_open_is_expected);
        createGlobalEvents();
        CoInitialize(nullptr);
        module.thread = GetCurrentThreadId();
        EXPECT_EQ(
            RegisterAgentClassObjects(CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE | REGCLS_SUSPENDED),
            S_OK);
        CoResumeClassObjects();
        MSG message;
        while (GetMessageW(&message, nullptr, 0, 0) > 0) DispatchMessageW(&message);
        EXPECT_EQ(RevokeAgentClassObjects(), S_OK);
        CoUninitialize();
        closeGlobalEvents();
        return 0;
    }

    // The server that runs; null for none.
    Process* Server() const
    {
        for (const auto& process : pc.processes()) {
            if (process->path() == Image{}.path && process->running()) return process.get();
        }
        return nullptr;
    }

    void StopServer()
    {
        Process* server = Server();
        if (!server) return;
        pc.Settle();
        PostThreadMessageW(module.thread, WM_QUIT, 0, 0);
        pc.RunUntilEnd(*server);
        pc.Settle();
    }

    // A program that uses the interface; it is over when the test is.
    AgentClient& Client(const std::wstring& name = L"UI")
    {
        auto& client = clients[name];
        if (!client) {
            client =
                std::shared_ptr<AgentClient>(new AgentClient(pc, name), [](AgentClient* ending) {
                    ending->Quit();
                    delete ending;
                });
        }
        return *client;
    }

    // An object of the calling process's own, and a call of it by number.
    static OwnedInterface<IHOLVAgent> MakeObject()
    {
        OwnedInterface<IHOLVAgent> object;
        EXPECT_EQ(HOLVAgentApi::Create(nullptr, IID_IHOLVAgent,
                                       reinterpret_cast<void**>(object.Receive())),
                  S_OK);
        return object;
    }

    static HRESULT Call(IDispatch& object, DISPID member, WORD flags,
                        std::vector<VARIANT> arguments, VARIANT* result = nullptr,
                        std::vector<DISPID> named = {}, UINT* bad = nullptr)
    {
        DISPPARAMS parameters{arguments.data(), named.data(), static_cast<UINT>(arguments.size()),
                              static_cast<UINT>(named.size())};
        return object.Invoke(member, IID_NULL, 0x0407, flags, &parameters, result, nullptr, bad);
    }

    // Starts a body as a program of its own, beside the service's.
    Process& StartUser(const std::wstring& name, std::function<void()> body)
    {
        const std::wstring path = LR"(C:\Program Files\Companion\)" + name + L".exe";
        pc.Install(path, [body = std::move(body)] {
            body();
            return 0;
        });
        return *pc.StartInstalled(path, path);
    }

    // Runs a body in a single-threaded apartment of a program.
    void RunInApartment(std::function<void()> body)
    {
        pc.RunUntilEnd(StartUser(L"Test", [&] {
            CoInitialize(nullptr);
            body();
            CoUninitialize();
        }));
    }

    // What was said since the last time, without who said it.
    std::wstring Said()
    {
        std::wstring said;
        const virtual_pc::Hold still(pc);
        for (; m_read < pc.outputs.debug().size(); ++m_read) {
            const std::wstring& line = pc.outputs.debug()[m_read].text;
            said += line.substr(line.find(L"   ") + 3);
        }
        return said;
    }

    TestModule module;
    std::map<std::wstring, std::shared_ptr<AgentClient>> clients;

private:
    std::size_t m_read = 0;
};

// --- What it is described as ---

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

// An object that another one is a part of.
class Outer final : public CountedObject<IUnknown, IID_IUnknown, Outer>
{
public:
    HRESULT QueryInterface(REFIID id, void** object) override
    {
        if (IsEqualIID(id, IID_IUnknown)) return CountedObject::QueryInterface(id, object);
        return inner.Get()->QueryInterface(id, object);
    }
    OwnedInterface<IUnknown> inner;
};

TEST_F(AgentTest, AnObjectMayBePartOfAnother)
{
    RunInApartment([&] {
        auto* const outer = new Outer;
        void* refused = nullptr;
        EXPECT_EQ(HOLVAgentApi::Create(outer, IID_IHOLVAgent, &refused), CLASS_E_NOAGGREGATION);
        ASSERT_EQ(HOLVAgentApi::Create(outer, IID_IUnknown,
                                       reinterpret_cast<void**>(outer->inner.Receive())),
                  S_OK);
        {
            OwnedInterface<IHOLVAgent> agent;
            OwnedInterface<IUnknown> identity;
            ASSERT_EQ(
                outer->QueryInterface(IID_IHOLVAgent, reinterpret_cast<void**>(agent.Receive())),
                S_OK);
            agent.Get()->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(identity.Receive()));
            EXPECT_EQ(identity.Get(), outer) << "it is the outer object from every side";
        }
        EXPECT_EQ(module.locks, 1);
        EXPECT_EQ(outer->Release(), 0u);
        EXPECT_EQ(module.locks, 0) << "and goes with it";
    });
}

// --- The features ---

TEST_F(AgentTest, EachFeatureIsStoredLoggedAndReadBack)
{
    const struct
    {
        LONG feature;
        const wchar_t* value_name;
        Setting* setting;
        const wchar_t* name;
        const wchar_t* on;
        const wchar_t* off;
    } cases[] = {
        {0, L"EnableNeverSleep", &g_bEnableNeverSleep, L"Holv State", L"enabled", L"disabled"},
        {1, L"MuteAudio", &g_bMuteAudio, L"Mute Audio", L"mute", L"do not mute"},
        {2, L"EnableDoNotDisturb", &g_bEnableDoNotDisturb, L"DND", L"enabled", L"disabled"},
        {3, L"EnableAppSuspend", &g_bEnableAppSuspend, L"App Suspend", L"enabled", L"disabled"},
        {5, L"TurnOnDisplayOnLync", &g_bTurnOnDisplayOnLync, L"Display on Lync", L"enabled",
         L"disabled"},
        {6, L"DndToS3", &g_bDndToS3, L"DND to S3", L"enabled", L"disabled"},
        {7, L"EnableHOLVOnDc", &g_bEnableHolvOnDC, L"Holv on DC", L"enabled", L"disabled"},
    };
    for (const auto& c : cases) {
        for (const LONG value : {0, 1, 2}) {
            Said();
            EXPECT_EQ(Client().Call(L"SetNeverSleepParam", {c.feature, value}).Words(), L"ok");
            const std::wstring word = value == 1 ? c.on : c.off;
            EXPECT_TRUE(Said().starts_with(L"Setting " + std::wstring(c.name) + L" to " + word));
            EXPECT_EQ(pc.registry.GetDword(kUserKey, c.value_name), static_cast<DWORD>(value));
            EXPECT_EQ(*c.setting, static_cast<DWORD>(value));
            EXPECT_EQ(Client().Call(L"GetNeverSleepParam", {c.feature}, {VT_I4}).Words(),
                      std::to_wstring(value));
            EXPECT_NE(Said().find(L"Returning " + std::wstring(c.name) + L" of " + word),
                      std::wstring::npos);
        }
    }
    for (const LONG feature : {4, 8, 9, -1}) {
        EXPECT_EQ(Client().Call(L"SetNeverSleepParam", {feature, 1}).Words(), L"ok");
        EXPECT_EQ(Client().Call(L"GetNeverSleepParam", {feature}, {VT_I4}).Words(), L"0");
        const std::wstring said = Said();
        const bool none = feature == 9 || feature == -1;
        EXPECT_EQ(said.find(L"Setting  to ") != said.npos, none) << feature;
        EXPECT_EQ(said.find(L"Returning  of ") != said.npos, none) << feature;
    }
    pc.power.battery_present = true;
    EXPECT_EQ(Client().Call(L"GetNeverSleepParam", {8}, {VT_I4}).Words(), L"1");
    pc.registry.Set(LR"(HKLM\Software\Microsoft\Communicator\4.0)", L"", {});
    EXPECT_EQ(Client().Call(L"GetNeverSleepParam", {4}, {VT_I4}).Words(), L"1");
}

TEST_F(AgentTest, TheFeatureAsAWholeStartsAndStopsTheStateMachine)
{
    const auto signalled = [] {
        return WaitForSingleObject(g_hGlobalEvents[EVENT_ENTER_S0], 0) == WAIT_OBJECT_0;
    };
    const struct
    {
        DWORD before;
        LONG set;
        bool starts;
        bool stops;
    } cases[] = {{1, 1, false, false},
                 {1, 0, false, true},
                 {0, 1, true, false},
                 {1, 2, true, false},
                 {0, 0, false, false}};
    RunInApartment([&] {
        createGlobalEvents();
        const OwnedInterface<IHOLVAgent> object = MakeObject();
        for (const auto& c : cases) {
            g_bEnableNeverSleep = c.before;
            CNeverSleepState::m_eSystemState = S0_NORMAL;
            EXPECT_EQ(object.Get()->SetNeverSleepParam(E_HOLV_STATE, c.set), S_OK);
            EXPECT_EQ(signalled(), c.starts) << c.before << c.set;
            EXPECT_EQ(CNeverSleepState::m_eSystemState == HOLV_INIT, c.stops) << c.before << c.set;
            ResetGlobalEvent(EVENT_ENTER_S0);
        }
        CNeverSleepState::m_eSystemState = HOLV_INIT;
        closeGlobalEvents();
    });
    g_bEnableNeverSleep = 1;
}

TEST_F(AgentTest, AChangeThatCannotBeWrittenCountsAllTheSame)
{
    pc.faults.Set("RegSetValueExW", {.error = ERROR_ACCESS_DENIED, .count = Faults::kAlways});
    EXPECT_EQ(Client().Call(L"SetNeverSleepParam", {1, 1}).Words(), L"ok");
    EXPECT_EQ(Client().Call(L"SetDoNotDisturbTimeInterval", {2000, 10}).Words(), L"ok");
    EXPECT_EQ(g_bMuteAudio, 1u);
    EXPECT_FALSE(pc.registry.GetDword(kUserKey, L"MuteAudio"));
    pc.faults.ClearAll();
    EXPECT_EQ(Client().Call(L"GetDoNotDisturbTimeInterval", {}, {VT_UINT, VT_UINT}).Words(),
              L"2000 10");
    EXPECT_EQ(Client().Call(L"SetDoNotDisturbTimeInterval", {1320, 360}).Words(), L"ok");
    EXPECT_EQ(pc.registry.GetDword(kUserKey, L"DoNotDisturbStart"), 1320u);
    EXPECT_EQ(pc.registry.GetDword(kUserKey, L"DoNotDisturbEnd"), 360u);
    EXPECT_NE(Said().find(L"SetDoNotDisturbTimeInterval, Start=1320, End=360"), std::wstring::npos);
    EXPECT_EQ(Client().Call(L"GetNeverSleepApiVersion", {}, {VT_BSTR}).Words(), L"1,1,70,537");
}

TEST_F(AgentTest, NullPlacesArePassedOverOrRefused)
{
    RunInApartment([&] {
        const OwnedInterface<IHOLVAgent> object = MakeObject();
        UINT end = 0;
        EXPECT_EQ(object.Get()->GetDoNotDisturbTimeInterval(nullptr, &end), S_OK);
        EXPECT_EQ(end, g_dwDoNotDisturbEnd);
        Said();
        EXPECT_EQ(object.Get()->GetNeverSleepParam(E_AUDIO, nullptr), E_INVALIDARG);
        EXPECT_EQ(Said(), L"");
        EXPECT_EQ(object.Get()->GetNeverSleepApiVersion(nullptr), E_POINTER);
        pc.faults.Set("SysAllocString", {});
        BSTR version = nullptr;
        EXPECT_EQ(object.Get()->GetNeverSleepApiVersion(&version), E_OUTOFMEMORY);
    });
}

// --- Events ---

TEST_F(AgentTest, SinksGetTheFirstFreeSlotAndItsNumberAsCookie)
{
    AgentClient& client = Client();
    for (const wchar_t* sink : {L"A", L"B", L"C", L"D", L"E"}) {
        EXPECT_EQ(client.Advise(sink, SinkReaction::none).Words(),
                  std::to_wstring(sink[0] - L'A' + 1));
    }
    EXPECT_EQ(client.Unadvise(L"B").Words(), L"ok");
    EXPECT_EQ(client.Unadvise(L"D").Words(), L"ok");
    EXPECT_EQ(client.Advise(L"F", SinkReaction::none).Words(), L"2");
    EXPECT_EQ(client.Advise(L"G", SinkReaction::none).Words(), L"4");
    EXPECT_EQ(client.Advise(L"H", SinkReaction::none).Words(), L"6");
    client.PutProperty(L"NeverSleepEventCode", 1);
    EXPECT_EQ(client.Heard(L"B"), L"");
    EXPECT_EQ(client.Heard(L"H"), L"1");
}

TEST_F(AgentTest, AConnectionPointListsItsSinksAndRefusesWhatIsNone)
{
    RunInApartment([&] {
        OwnedInterface<IConnectionPointContainer> container;
        ASSERT_EQ(CoCreateInstance(CLSID_HOLVAgentApi, nullptr, CLSCTX_LOCAL_SERVER,
                                   IID_IConnectionPointContainer,
                                   reinterpret_cast<void**>(container.Receive())),
                  S_OK);
        OwnedInterface<IConnectionPoint> point;
        EXPECT_EQ(container.Get()->FindConnectionPoint(IID_IDispatch, point.Receive()),
                  CONNECT_E_NOCONNECTION);
        OwnedInterface<IEnumConnectionPoints> points;
        ASSERT_EQ(container.Get()->EnumConnectionPoints(points.Receive()), S_OK);
        IConnectionPoint* listed[2] = {};
        ULONG given = 0;
        EXPECT_EQ(points.Get()->Next(2, listed, &given), S_FALSE);
        ASSERT_EQ(given, 1u);
        point.Reset(listed[0]);
        IID id{};
        EXPECT_EQ(point.Get()->GetConnectionInterface(&id), S_OK);
        EXPECT_TRUE(id == DIID__HOLVAgentSinkEvent);
        OwnedInterface<IConnectionPointContainer> whose;
        EXPECT_EQ(point.Get()->GetConnectionPointContainer(whose.Receive()), S_OK);
        EXPECT_EQ(whose.Get(), container.Get());

        DWORD cookie = 7;
        EXPECT_EQ(point.Get()->Advise(container.Get(), &cookie), CONNECT_E_CANNOTCONNECT);
        EXPECT_EQ(cookie, 0u);
        EXPECT_EQ(point.Get()->Unadvise(1), CONNECT_E_NOCONNECTION);
        OwnedInterface<IEnumConnections> connections;
        EXPECT_EQ(point.Get()->EnumConnections(connections.Receive()), S_OK);
        CONNECTDATA connection{};
        EXPECT_EQ(connections.Get()->Next(1, &connection, nullptr), S_FALSE);
    });
}

TEST_F(AgentTest, AnEventCodeIsTakenUnlessASinkCancelsIt)
{
    AgentClient& client = Client();
    const auto code = [&] { return client.GetProperty(L"NeverSleepEventCode").Words(); };
    const auto put = [&](LONG value) {
        return client.PutProperty(L"NeverSleepEventCode", value).Words();
    };
    EXPECT_EQ(code(), L"0") << "before the first";
    EXPECT_EQ(put(1), L"ok");
    EXPECT_EQ(code(), L"1") << "with nobody to ask";
    client.Advise(L"listens", SinkReaction::none);
    EXPECT_EQ(put(-5), L"ok");
    EXPECT_EQ(code(), L"-5") << "any number";
    client.Advise(L"cancels", SinkReaction::cancel);
    client.Advise(L"after", SinkReaction::none);
    EXPECT_EQ(put(2), L"ok");
    EXPECT_EQ(code(), L"-5");
    EXPECT_EQ(client.Heard(L"after"), L"2") << "those after it still hear";
    client.Advise(L"clears", SinkReaction::clear);
    put(3);
    EXPECT_EQ(code(), L"3") << "what one refuses another may let pass";
    client.Unadvise(L"cancels");
    client.Advise(L"fails", SinkReaction::fail);
    client.Advise(L"calls back", SinkReaction::call_back);
    client.Advise(L"leaves", SinkReaction::leave);
    EXPECT_EQ(put(4), L"ok");
    EXPECT_EQ(code(), L"4") << "a failing sink stops nobody";
    EXPECT_EQ(put(5), L"ok");
    EXPECT_EQ(client.Heard(L"calls back"), L"4 5");
    EXPECT_EQ(client.Heard(L"leaves"), L"4");
    EXPECT_EQ(client.Heard(L"listens"), L"-5 2 3 4 5");
    EXPECT_EQ(client.Unadvise(L"leaves").Words(), L"0x80040200");
}

TEST_F(AgentTest, EachClientHearsItsOwnObjectAndAllShareTheSettings)
{
    Client(L"One").Advise(L"A", SinkReaction::none);
    Client(L"Two").Advise(L"A", SinkReaction::none);
    Client(L"One").PutProperty(L"NeverSleepEventCode", 1);
    EXPECT_EQ(Client(L"One").Heard(L"A"), L"1");
    EXPECT_EQ(Client(L"Two").Heard(L"A"), L"");
    EXPECT_EQ(Client(L"Two").GetProperty(L"NeverSleepEventCode").Words(), L"0");
    Client(L"One").Call(L"SetNeverSleepParam", {1, 1});
    EXPECT_EQ(Client(L"Two").Call(L"GetNeverSleepParam", {1}, {VT_I4}).Words(), L"1");
    EXPECT_EQ(module.locks, 2);
}

// --- Ends in the middle ---

TEST_F(AgentTest, AClientThatGoesAwayLeavesNothingBehind)
{
    left_open_is_expected = true;  // in the program that is ended
    module.ends_with_clients = true;
    Client(L"Goes").Advise(L"A", SinkReaction::none);
    Process* const server = Server();
    ASSERT_TRUE(server);
    Client(L"Stays").Advise(L"A", SinkReaction::none);
    clients[L"Goes"]->End();
    EXPECT_EQ(module.locks, 1) << "its object is gone";
    EXPECT_EQ(Client(L"Stays").PutProperty(L"NeverSleepEventCode", 1).Words(), L"ok");
    EXPECT_EQ(Client(L"Stays").Heard(L"A"), L"1");
    Client(L"Stays").Release();
    pc.RunUntilEnd(*server);
    EXPECT_TRUE(server->left_open().empty());
    EXPECT_EQ(Client(L"Stays").GetProperty(L"NeverSleepEventCode").Words(), L"0")
        << "the next call starts the program anew";
    EXPECT_NE(Server(), server);
}

TEST_F(AgentTest, AServerThatGoesAwayIsAnErrorForItsClients)
{
    left_open_is_expected = true;  // in the server that is ended
    Client().GetProperty(L"NeverSleepEventCode");
    {
        const Hold hold(pc);
        Server()->Terminate(1);
    }
    pc.Settle();
    EXPECT_EQ(Client().PutProperty(L"NeverSleepEventCode", 1).Words(), L"0x800706BA");
    module.locks = 0;  // the objects went with the process, as its memory does
    EXPECT_EQ(Client().PutProperty(L"NeverSleepEventCode", 1).Words(), L"ok");
    StopServer();  // this one in good order
    EXPECT_EQ(module.locks, 0);
    EXPECT_EQ(Client().PutProperty(L"NeverSleepEventCode", 1).Words(), L"0x800706BA");
}

TEST_F(AgentTest, ASinkWhoseProgramIsGoneFailsAndStopsNobody)
{
    left_open_is_expected = true;
    // A sink of one program, connected to an object that another one holds as well.
    AgentClient& client = Client();
    client.Advise(L"A", SinkReaction::none);
    OwnedInterface<IHOLVAgent> own;
    RunInApartment([&] {
        OwnedInterface<IDispatch> object;
        ASSERT_EQ(CoCreateInstance(CLSID_HOLVAgentApi, nullptr, CLSCTX_ALL, IID_IDispatch,
                                   reinterpret_cast<void**>(object.Receive())),
                  S_OK);
        pc.faults.Set("IDispatch::Invoke", {.error = 0x800706BE, .first = 2});
        EXPECT_EQ(Call(*object.Get(), 5, DISPATCH_PROPERTYPUT, {Number(1)}, nullptr,
                       {DISPID_PROPERTYPUT}),
                  S_OK);
    });
    pc.faults.Set("IDispatch::Invoke", {.error = 0x800706BE, .first = 2});
    EXPECT_EQ(client.PutProperty(L"NeverSleepEventCode", 1).Words(), L"ok");
    EXPECT_EQ(client.Heard(L"A"), L"") << "it could not be reached";
    EXPECT_EQ(client.GetProperty(L"NeverSleepEventCode").Words(), L"1");
}

// The story is told until the last program has ended.
class AgentScriptTest : public AgentTest
{
protected:
    std::ostringstream out;
    ServiceView view{pc};
    Story story{pc, out};
};

TEST_F(AgentScriptTest, ScriptsUseTheInterfaceAndTellWhatCameOfIt)
{
    const Image image;
    {
        Stage stage{pc, image, view, story, out, {}};
        for (const char* line : {
                 "client set E_AUDIO 1",
                 "client get E_AUDIO",
                 "expect client answer 1",
                 "client advise A cancels",
                 "client use Second",
                 "client advise A",
                 "client event 1",
                 "expect client heard A 1",
                 "client quit",
                 "client use UI",
                 "client event 2",
                 "client event",
                 "expect client answer 0",
                 "client unadvise A",
                 "client unadvise A",
                 "expect client answer 0x80040200",
                 "client interval 1320 360",
                 "client status",
                 "expect client answer \"1320 360\"",
                 "client quit",
             }) {
            Bind(ReadLine(line, {}, 1))(stage);
        }
        EXPECT_THROW(Bind(ReadLine("client set E_NONE 1", {}, 1)), ScriptError);
        EXPECT_THROW(Bind(ReadLine("client advise A explodes", {}, 1)), ScriptError);
        Bind(ReadLine("client version", {}, 1))(stage);
        EXPECT_THROW(Bind(ReadLine("expect client answer 2", {}, 1))(stage), ExpectationFailed);
        Bind(ReadLine("client quit", {}, 1))(stage);
    }
    for (const char* told : {
             "UI: SetNeverSleepParam 1 1\n",
             "Second: sink A hears of event code 1\n",
             "UI: sink A hears of event code 2\n",
             "UI: unadvise A fails with 0x80040200\n",
             "UI: GetNeverSleepApiVersion gives 1,1,70,537\n",
             "E_AUDIO  1\n",
         }) {
        EXPECT_NE(out.str().find(told), std::string::npos) << told;
    }
}

// --- Activation ---

TEST_F(AgentTest, WhatCannotBeActivatedSaysWhy)
{
    const auto answer = [&] {
        std::wstring words = Client().GetProperty(L"NeverSleepEventCode").Words();
        Client().Release();
        return words;
    };
    const std::wstring app_key = LR"(HKCR\AppID\)" + std::wstring(kAppId);
    std::wstring asked;
    pc.com.start_service = [&](const std::wstring& service) {
        asked = service;
        return static_cast<HRESULT>(0x80070422u);
    };
    pc.registry.SetString(app_key, L"LocalService", L"HOLVService");
    EXPECT_EQ(answer(), L"0x80070422") << "the service's own failure";
    EXPECT_EQ(asked, L"HOLVService");
    pc.com.start_service = [&](const std::wstring&) {
        pc.StartInstalled(Image{}.path, L"HOLVService.exe");
        return S_OK;
    };
    EXPECT_EQ(answer(), L"0") << "and when it starts, the class is served";
    StopServer();
    pc.registry.DeleteKey(app_key);

    pc.Install(Image{}.path, [] { return 3; });
    EXPECT_EQ(answer(), L"0x80080005") << "a program that ends at once";
    pc.Install(Image{}.path, [] {
        Sleep(200'000);
        return 0;
    });
    const Instant before = pc.now();
    EXPECT_EQ(answer(), L"0x80080005") << "one that offers nothing";
    EXPECT_EQ(pc.now() - before, 120s);
    pc.RunFor(100s);
    pc.registry.SetString(LR"(HKCR\CLSID\)" + std::wstring(kClassId) + LR"(\LocalServer32)", L"",
                          LR"(C:\Nowhere\None.exe)");
    EXPECT_EQ(answer(), L"0x80080005") << "one that is not there";
    pc.registry.DeleteKey(LR"(HKCR\CLSID\)" + std::wstring(kClassId));
    EXPECT_EQ(answer(), L"0x80040154");
    pc.registry.DeleteKey(LR"(HKCR\HOLVAgentLib.HOLVAgentLib)");
    EXPECT_EQ(answer(), L"0x800401F3");
}

TEST_F(AgentTest, EachCallThatFailsLeavesNothingBehind)
{
    const auto life = [&] {
        AgentClient& client = Client();
        client.Call(L"GetNeverSleepApiVersion", {}, {VT_BSTR});
        client.Advise(L"A", SinkReaction::cancel);
        client.Advise(L"B", SinkReaction::call_back);
        client.PutProperty(L"NeverSleepEventCode", 1);
        client.Call(L"SetNeverSleepParam", {1, 1});
        client.Unadvise(L"A");
        client.Release();
    };
    life();
    for (std::uint64_t n = 1;; ++n) {
        pc.faults.FailNth(n);
        life();
        const Function* failed = pc.faults.failed();
        pc.faults.FailNth(0);
        if (!failed) break;
        EXPECT_EQ(module.locks, 0) << failed->name() << " failed, call " << n;
        if (!Server()) continue;  // its loop failed, and it ended
    }
}

// --- Everything at once ---

class AgentStorm : public AgentTest, public ::testing::WithParamInterface<int>
{
protected:
    AgentStorm() : AgentTest({.free = kRunFree, .seed = static_cast<std::uint64_t>(GetParam())}) {}

    // A program that calls the interface in an order of its own, and hears its own events.
    void Use(int number)
    {
        std::mt19937 random(static_cast<unsigned>(GetParam() * 100 + number));
        CoInitializeEx(nullptr, number % 2 ? COINIT_APARTMENTTHREADED : COINIT_MULTITHREADED);
        for (int life = 0; life < 4; ++life) {
            OwnedInterface<IDispatch> object;
            EXPECT_EQ(CoCreateInstance(CLSID_HOLVAgentApi, nullptr, CLSCTX_LOCAL_SERVER,
                                       IID_IDispatch, reinterpret_cast<void**>(object.Receive())),
                      S_OK);
            if (!object) break;
            OwnedInterface<IConnectionPointContainer> container;
            OwnedInterface<IConnectionPoint> point;
            object.Get()->QueryInterface(IID_IConnectionPointContainer,
                                         reinterpret_cast<void**>(container.Receive()));
            container.Get()->FindConnectionPoint(DIID__HOLVAgentSinkEvent, point.Receive());
            StormSink* const sink = new StormSink(*object.Get());
            DWORD cookie = 0;
            EXPECT_EQ(point.Get()->Advise(sink, &cookie), S_OK);
            EXPECT_EQ(cookie, 1u) << "nobody else's sinks";
            for (int i = 0; i < 10; ++i) {
                const LONG feature = static_cast<LONG>(random() % 8);
                const LONG value = static_cast<LONG>(random() % 2);
                EXPECT_EQ(Call(*object.Get(), 1, DISPATCH_METHOD, {Number(value), Number(feature)}),
                          S_OK);
                EXPECT_EQ(Call(*object.Get(), 5, DISPATCH_PROPERTYPUT, {Number(i)}, nullptr,
                               {DISPID_PROPERTYPUT}),
                          S_OK);
                VARIANT code{};
                EXPECT_EQ(Call(*object.Get(), 5, DISPATCH_PROPERTYGET, {}, &code), S_OK);
                EXPECT_EQ(code.lVal, i) << "the object's own code";
            }
            EXPECT_EQ(sink->heard, 10);
            EXPECT_EQ(point.Get()->Unadvise(cookie), S_OK);
            sink->Release();
        }
        CoUninitialize();
    }

private:
    // Calls back into the object that it hears from.
    class StormSink final : public CountedObject<IDispatch, IID_IDispatch, StormSink>
    {
    public:
        explicit StormSink(IDispatch& object) : m_object(object) {}
        HRESULT QueryInterface(REFIID id, void** object) override
        {
            return CountedObject::QueryInterface(
                IsEqualIID(id, DIID__HOLVAgentSinkEvent) ? IID_IDispatch : id, object);
        }
        HRESULT GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
        HRESULT GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
        HRESULT GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
        HRESULT Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                       UINT*) override
        {
            ++heard;
            LONG value = 0;
            return Call(m_object, 4, DISPATCH_METHOD, {Place(VT_I4, &value), Number(E_AUDIO)});
        }
        std::atomic<int> heard = 0;

    private:
        IDispatch& m_object;
    };
};

TEST_P(AgentStorm, ClientsOfAllKindsCallAndHearAtOnce)
{
    std::array<Process*, 4> users{};
    for (int i = 0; Process * &user : users) {
        user = &StartUser(std::to_wstring(i), [this, i] { Use(i); });
        ++i;
    }
    for (Process* user : users) pc.RunUntilEnd(*user);
    pc.Settle();
    EXPECT_EQ(module.locks, 0);
    Process* const server = Server();
    StopServer();
    EXPECT_TRUE(server->left_open().empty());
}

INSTANTIATE_TEST_SUITE_P(Seeds, AgentStorm, ::testing::Range(1, kRunFree ? 4 : 9));

}  // namespace
