// The installed service on a PC: what a test does to it, and what it hears of it.
#pragma once

#include "platform/service.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/registry/registry.h"
#include "platform/virtual/services/service_manager.h"
#include "tests/virtual_pc_test.h"

inline constexpr const wchar_t* kService = L"HOLVService";
inline constexpr const wchar_t* kAppIdKey = LR"(HKCR\AppID\{7A31C5E2-90D4-4B6E-A1F3-2C8D5E9B0A47})";

// The service's program on a PC's disk, and its settings so that the debugger hears everything.
struct ServiceOnPc
{
    explicit ServiceOnPc(virtual_pc::Machine& machine) : pc(machine)
    {
        pc.Install(image);
        pc.registry.SetDword(kUserKey, L"LoggingLevel", 6);
        pc.registry.SetDword(kUserKey, L"LoggingEnabled", 4);
    }

    // Runs the program with this command line behind its path, and returns its exit code.
    int Run(const std::wstring& arguments)
    {
        virtual_pc::Process* process =
            pc.StartInstalled(image.path, L"\"" + image.path + L"\" " + arguments);
        pc.RunUntilEnd(*process);
        return process->exit_code();
    }

    void Start()
    {
        EXPECT_EQ(Run(L"-Service"), 0);
        Restart();
    }
    void Restart()
    {
        heard.Forget();
        EXPECT_EQ(pc.services.Start(kService), DWORD{ERROR_SUCCESS});
        pc.RunFor(std::chrono::milliseconds{1});
    }

    // Until the program has ended.
    void Stop()
    {
        EXPECT_EQ(pc.services.Control(kService, SERVICE_CONTROL_STOP), DWORD{ERROR_SUCCESS});
        AwaitEnd();
    }
    void AwaitEnd()
    {
        EXPECT_TRUE(
            pc.RunUntil([&] { return !Find() || !Find()->process; }, std::chrono::minutes{1}));
    }

    std::shared_ptr<virtual_pc::Service> Find() const { return pc.services.Find(kService); }

    // Its state, and the exit code where it is not 0.
    std::string State() const
    {
        const auto service = Find();
        if (!service) return "absent";
        const DWORD code = service->status.dwWin32ExitCode;
        return virtual_pc::ToUtf8(virtual_pc::ServiceStateName(service->status.dwCurrentState)) +
               (code ? " " + std::to_string(code) : "");
    }

    // What it has reported since its start.
    std::string Reports() const
    {
        std::string reports;
        for (const SERVICE_STATUS& report : Find()->reports) {
            reports +=
                virtual_pc::ToUtf8(virtual_pc::ServiceStateName(report.dwCurrentState)) + " ";
        }
        return reports;
    }

    virtual_pc::Machine& pc;
    Heard heard{pc};
    const virtual_pc::Image image{.host_path = HOLV_IMAGE,
                                  .resources = HOLV_SOURCE_DIR "/resources"};
};

class ServiceFixture : public VirtualPcTest
{
protected:
    ServiceOnPc service{pc};
};
