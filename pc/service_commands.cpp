// Service control as an administrator does it, and the PC's power switch.

#include <algorithm>

#include "pc/commands.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/processes/cpu.h"
#include "platform/virtual/services/service_manager.h"

using namespace virtual_pc;

namespace {

[[noreturn]] void Refuse(const ScriptLine& line, const std::string& what, DWORD error)
{
    throw ExpectationFailed(line, what + " is refused with error " + std::to_string(error));
}

// Runs the service's program with switches until it ends, and returns its exit code.
int RunProgram(const ScriptLine& line, ScriptContext& context, const std::string& switches)
{
    std::wstring command_line = L"\"" + context.image.path + L"\"";
    if (!switches.empty()) command_line += L" " + FromUtf8(switches);
    const Process* process = context.pc.StartInstalled(context.image.path, command_line);
    if (!process) throw ExpectationFailed(line, "the service's program is not on the disk");
    if (!context.pc.RunUntil([&] { return !process->running(); }, 1min)) {
        throw ExpectationFailed(line, "the program has not ended within a minute");
    }
    return process->exit_code();
}

Action RunSwitch(const ScriptLine& line, const char* the_switch)
{
    return [=](ScriptContext& context) {
        const int exit_code = RunProgram(line, context, the_switch);
        if (exit_code != 0) {
            throw ExpectationFailed(line, "it ended with exit code " + std::to_string(exit_code));
        }
    };
}

Action Install(const ScriptLine& line, const Arguments&) { return RunSwitch(line, "-Service"); }
Action Uninstall(const ScriptLine& line, const Arguments&)
{
    return RunSwitch(line, "-UnregServer");
}

Action Run(const ScriptLine& line, const Arguments& a)
{
    return [line, a](ScriptContext& context) { RunProgram(line, context, a[0]); };
}

Action Start(const ScriptLine& line, const Arguments&)
{
    return [line](ScriptContext& context) {
        if (const DWORD error = context.pc.services.Start(kServiceName))
            Refuse(line, "the start", error);
        context.pc.Settle();
    };
}

Action Stop(const ScriptLine& line, const Arguments&)
{
    return [line](ScriptContext& context) {
        ServiceManager& services = context.pc.services;
        const std::shared_ptr<Service> service = services.Find(kServiceName);
        if (const DWORD error = services.Control(kServiceName, SERVICE_CONTROL_STOP)) {
            Refuse(line, "the stop", error);
        }
        const auto gone = [&] { return service->stopped() && !service->process; };
        if (!context.pc.RunUntil(gone, 1min)) {
            throw ExpectationFailed(line, "the service has not stopped within a minute");
        }
    };
}

Action DeleteFromDatabase(const ScriptLine& line, const Arguments&)
{
    return [line](ScriptContext& context) {
        if (const DWORD error = context.pc.services.Delete(kServiceName)) Refuse(line, "it", error);
    };
}

std::string StateOfService(const ScriptContext& context)
{
    const Hold hold(context.pc);
    const std::shared_ptr<Service> service = context.pc.services.Find(kServiceName);
    return service ? ToUtf8(ServiceStateName(service->status.dwCurrentState)) : "absent";
}

Action Query(const ScriptLine&, const Arguments&)
{
    return [](ScriptContext& context) {
        const Hold hold(context.pc);
        const std::shared_ptr<Service> service = context.pc.services.Find(kServiceName);
        const std::optional<ServiceConfig> config = context.pc.services.Read(kServiceName);
        context.out << "HOLVService: " << StateOfService(context) << "\n";
        if (!service || !config) return;
        context.out << "  program       " << ToUtf8(config->path) << "\n  display name  "
                    << ToUtf8(config->display_name) << "\n  start         "
                    << (config->start == SERVICE_AUTO_START ? "automatic" : "on demand")
                    << "\n  accepts       0x" << std::hex << service->status.dwControlsAccepted
                    << std::dec << "\n  exit code     " << service->status.dwWin32ExitCode << "\n"
                    << (service->marked ? "  marked for deletion\n" : "");
    };
}

Action Expect(const ScriptLine& line, const Arguments& a)
{
    ChoiceOf(line, a[0], {"running", "starting", "stopping", "stopped", "absent"});
    return [line, expected = a[0]](ScriptContext& context) {
        const std::string state = StateOfService(context);
        if (state == expected) return;
        throw ExpectationFailed(line,
                                "expected the service to be " + expected + ", but it is " + state);
    };
}

Action SetVendor(const ScriptLine& line, const Arguments& a)
{
    constexpr std::size_t kLength = 12;
    if (a[0].size() != kLength) throw ScriptError(line, "a vendor has twelve characters");
    return [vendor = a[0]](ScriptContext& context) { context.pc.cpu.vendor = vendor; };
}

Action Boot(const ScriptLine&, const Arguments&)
{
    return [](ScriptContext& context) { context.pc.Boot(); };
}

Action ShutDown(const ScriptLine&, const Arguments&)
{
    return [](ScriptContext& context) { context.pc.ShutDown(); };
}

}  // namespace

std::vector<Command> ServiceCommands()
{
    return {
        {"service install", "installs the service by its program's switch", Install},
        {"service uninstall", "removes the service by its program's switch", Uninstall},
        {"service run [SWITCHES]", "runs the service's program by itself, to its end", Run},
        {"service start", "has the service manager start the service", Start},
        {"service stop", "asks the service to stop, and waits for a minute at most", Stop},
        {"service delete", "deletes the service from the service manager's database",
         DeleteFromDatabase},
        {"service query", "prints what the service manager knows of the service", Query},
        {"expect service STATE", "running, starting, stopping, stopped or absent", Expect},
        {"cpu VENDOR", "sets the processor's vendor, twelve characters", SetVendor},
        {"pc boot", "switches the PC on: starts the services that start by themselves", Boot},
        {"pc shutdown", "shuts the PC down: stops the services, and ends what is left", ShutDown},
    };
}
