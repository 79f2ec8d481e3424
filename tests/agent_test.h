// A server of the control interface on a PC, in the test's own program, and programs that use it.
#pragma once

#include <array>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "api/agent_api.h"
#include "api/agent_module.h"
#include "api/class_objects.h"
#include "api/holv_agent_api.h"
#include "api/type_library.h"
#include "pc/agent_client.h"
#include "platform/counted_object.h"
#include "platform/message.h"
#include "platform/virtual/com/com.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/registry/registry.h"
#include "tests/running_service.h"

inline const std::filesystem::path kDescription =
    std::filesystem::path(HOLV_SOURCE_DIR) / "api" / "HOLVAgentLib.idl";
inline constexpr const wchar_t* kClassId = L"{3E9F1B20-6C4A-4D8E-B7F2-95A0C1D3E864}";
inline constexpr const wchar_t* kAppId = L"{7A31C5E2-90D4-4B6E-A1F3-2C8D5E9B0A47}";

inline VARIANT Number(LONG number)
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

// Counts the references that keep the process alive.
class TestModule final : public AgentModule
{
public:
    void Lock() override { ++locks; }
    void Unlock() override { --locks; }

    std::atomic<int> locks = 0;
    std::atomic<DWORD> thread = 0;
};

class AgentTest : public VirtualPcTest
{
protected:
    explicit AgentTest(const virtual_pc::Machine::Options& options = DrawnSchedule())
        : VirtualPcTest(options)
    {
        g_dwLoggingLevel = 6;
        g_dwLoggingEnabled = kLogToDebugger;
        SetAgentModule(&module);
        pc.registry.SetDword(kUserKey, L"LoggingLevel", 6);
        pc.com.type_libraries.Add(virtual_pc::Image{}.path, kDescription);
        pc.Install(virtual_pc::Image{}.path, [this] { return Serve(); });
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
        pc.registry.SetString(key + LR"(\LocalServer32)", L"", virtual_pc::Image{}.path);
        RunAsProgram([] { EXPECT_EQ(RegisterAgentTypeLibrary(false), S_OK); });
    }

    // Runs a body as the service's program, to its end.
    void RunAsProgram(std::function<void()> body)
    {
        pc.Install(virtual_pc::Image{}.path, [&] {
            body();
            return 0;
        });
        pc.RunUntilEnd(*pc.StartInstalled(virtual_pc::Image{}.path, L"HOLVService.exe"));
        pc.Install(virtual_pc::Image{}.path, [this] { return Serve(); });
    }

    // What the service's program does as a server: a single-threaded apartment and its loop.
    int Serve()
    {
        const GlobalEvents events;
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
        return 0;
    }

    // The server that runs; null for none.
    virtual_pc::Process* Server() const
    {
        for (const auto& process : pc.processes()) {
            if (process->path() == virtual_pc::Image{}.path && process->running())
                return process.get();
        }
        return nullptr;
    }

    void StopServer()
    {
        virtual_pc::Process* server = Server();
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
    virtual_pc::Process& StartUser(const std::wstring& name, std::function<void()> body)
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

    TestModule module;
    std::map<std::wstring, std::shared_ptr<AgentClient>> clients;
};
