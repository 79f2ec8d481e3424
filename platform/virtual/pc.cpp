// The whole PC: its facets, and how they know one another.

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <exception>
#include <filesystem>

#include "platform/virtual/announcer/announcer.h"
#include "platform/virtual/base/one_core.h"
#include "platform/virtual/com/com.h"
#include "platform/virtual/console/outputs.h"
#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/core/thread.h"
#include "platform/virtual/devices/device.h"
#include "platform/virtual/disk/disk.h"
#include "platform/virtual/eventlog/event_log.h"
#include "platform/virtual/power/battery.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/power/processor.h"
#include "platform/virtual/power/sleep.h"
#include "platform/virtual/power/user.h"
#include "platform/virtual/processes/cpu.h"
#include "platform/virtual/processes/libraries.h"
#include "platform/virtual/processes/programs.h"
#include "platform/virtual/registry/registry.h"
#include "platform/virtual/services/service_manager.h"
#include "platform/virtual/sessions/session.h"
#include "platform/virtual/sound/audio.h"

namespace virtual_pc {
namespace {

// In the host's folder of a kept PC, beside the disk.
constexpr const char* kRegistryFile = "registry.reg";
constexpr const char* kEventFile = "events.txt";

constexpr std::string_view kFirstClock = "2026-03-02 08:00";  // a Monday

// The path of `name` in the folder of the host that keeps the PC between runs; empty when nothing
// is kept.
std::string Kept(const std::string& root, const char* name)
{
    return root.empty() ? root : (std::filesystem::path(root) / name).string();
}

// How long services have to stop when the PC shuts down.
Duration ShutdownPatience(const Machine& machine)
{
    const Duration usual = std::chrono::seconds{machine.AtLeast(kWindows8) ? 5 : 20};
    const auto set = machine.registry.GetString(LR"(HKLM\SYSTEM\CurrentControlSet\Control)",
                                                L"WaitToKillServiceTimeout");
    if (!set) return usual;
    const long milliseconds = std::wcstol(set->c_str(), nullptr, 10);
    return milliseconds > 0 ? Duration(std::chrono::milliseconds{milliseconds}) : usual;
}

}  // namespace

// In the order of their folders, bottom up. Until all are made, the machine's references lead to
// facets that do not exist yet, so a constructor uses no facet but those it is given.
struct Facets
{
    Facets(Machine& machine, const Machine::Options& options)
        : registry(machine),
          devices(machine),
          event_log(machine),
          announcer(machine),
          outputs(machine),
          disk(machine, Kept(options.root, "C")),
          power(machine, announcer),
          processor(machine),
          battery(machine),
          user(machine, announcer),
          sleep(machine, announcer),
          session(machine),
          services(machine, announcer),
          com(machine, options.seed),
          audio(machine, com),
          programs(machine)
    {
    }

    Registry registry;
    Devices devices;
    EventLog event_log;
    Announcer announcer;
    Outputs outputs;
    Disk disk;
    Cpu cpu;
    Libraries libraries;
    Power power;
    Processor processor;
    Battery battery;
    User user;
    SleepState sleep;
    Session session;
    ServiceManager services;
    Com com;
    Audio audio;
    // Declared last, so destroyed first: the processes end before the facets that they use.
    Programs programs;
};

Machine::Machine(const Options& options)
    : m_switched_on_at(*ParseCalendar(kFirstClock)),
      scheduler(*this, {.free = options.free,
                        .seed = options.seed,
                        .priorities = options.priorities,
                        .departures = options.departures,
                        .pace = options.pace,
                        .go_on = options.go_on}),
      faults(options.seed),
      slowness(options.seed),
      unwritten(*this, options.seed),
      m_facets(std::make_unique<Facets>(*this, options)),
      registry(m_facets->registry),
      devices(m_facets->devices),
      event_log(m_facets->event_log),
      announcer(m_facets->announcer),
      outputs(m_facets->outputs),
      disk(m_facets->disk),
      cpu(m_facets->cpu),
      libraries(m_facets->libraries),
      programs(m_facets->programs),
      power(m_facets->power),
      processor(m_facets->processor),
      battery(m_facets->battery),
      user(m_facets->user),
      sleep(m_facets->sleep),
      waker(m_facets->sleep),
      session(m_facets->session),
      services(m_facets->services),
      com(m_facets->com),
      audio(m_facets->audio),
      m_driver(std::make_shared<Thread>()),
      m_root(options.root)
{
    os_version = options.os_version;
    // Some seeds have the sound system call one callback after the other.
    if (options.seed % 3 == 1) audio.notices.threads_max = 1;
    SwitchOn(options.free);
    ConnectFacets();
    services.AddSystemService();
    try {
        Load();
    } catch (...) {
        SwitchOff();
        throw;
    }
}

// Sets the callbacks by which a facet reaches one above it, which it does not include.
void Machine::ConnectFacets()
{
    programs.installed = [this](const Image& image) {
        const std::filesystem::path resources = image.resources;
        event_log.AddMessageFile(image.path, resources / "HOLVService.mc");
        com.type_libraries.Add(image.path, resources.parent_path() / "api" / "HOLVAgentLib.idl");
    };
    process_ending = [this](Process& process) { com.Forget(process); };
    process_ended = [this](Process& process) {
        services.ProcessEnded(process);
        audio.notices.ProcessEnded(process);
    };
    com.start_service = [this](const std::wstring& name) -> HRESULT {
        const DWORD error = services.Start(name);
        return error == ERROR_SERVICE_ALREADY_RUNNING ? S_OK : HRESULT_FROM_WIN32(error);
    };
}

Machine::~Machine()
{
    {
        // Wakes the machine first: none of its threads could run to its end while it sleeps.
        const Hold hold(*this);
        scheduler.GoOn();
        scheduler.GoOnToTheEnd();
    }
    for (const auto& process : processes()) {
        if (process->running()) process->Kill();
    }
    scheduler.JoinHostThreads(true);
    Keep();
    SwitchOff();
}

void Machine::Load()
{
    if (m_root.empty()) return;
    registry.Load(Kept(m_root, kRegistryFile));
    event_log.Load(Kept(m_root, kEventFile));
}

void Machine::Keep()
{
    if (m_root.empty()) return;
    const auto keep = [this](const char* what, const auto& facet, const char* file) {
        try {
            facet.Save(Kept(m_root, file));
        } catch (const std::exception& error) {
            const std::string loss = std::string(what) + " was not kept: " + error.what();
            if (not_kept) return not_kept(loss);
            std::fprintf(stderr, "%s\n", loss.c_str());
        }
    };
    keep("the registry", registry, kRegistryFile);
    keep("the event log", event_log, kEventFile);
}

void Machine::SetClock(CalendarTime local)
{
    const Hold hold(*this);
    const CalendarTime before = clock();
    m_switched_on_at = local - now();
    journal.Record("clock", {});
    announcer.TimeChanged(local, before);
}

// Effect "power switch": `what` is done, on, shuts down, off or cut.
void Machine::Boot()
{
    Settle();
    if (!std::exchange(m_on, true)) sleep.SwitchOn();
    journal.Record("power switch", {{"what", L"on"}});
    services.Boot();
    Settle();
}

void Machine::ShutDown()
{
    journal.Record("power switch", {{"what", L"shuts down"}});
    services.Shutdown();
    RunUntil([this] { return services.AllEnded(); }, ShutdownPatience(*this));
    {
        const Hold hold(*this);
        // One that has fallen asleep on its way down is woken by the hand at the switch: none of
        // its threads could run to its end while it sleeps.
        if (sleep.phase() != SleepState::Phase::awake) sleep.WakeByUser();
        for (const auto& process : processes()) process->Terminate(1);
    }
    RunUntil([this] {
        return std::ranges::none_of(processes(), [](const auto& p) { return p->running(); });
    });
    registry.DeleteVolatileKeys();
    journal.Record("power switch", {{"what", L"off"}});
}

void Machine::CutPower()
{
    const Hold hold(*this);
    if (!std::exchange(m_on, false)) return;
    journal.Record("power switch", {{"what", L"cut"}});
    for (const auto& process : processes()) process->Terminate(1);
    unwritten.Lose();
    registry.DeleteVolatileKeys();
    disk.Lose();
    power.Lose();
    session.SwitchOff();
    sleep.SwitchOff();
}

void Machine::CutPowerAtCall(std::wstring_view program, std::uint64_t number)
{
    programs.AtCall(program, number, [this](Process&) { CutPower(); });
}

void Machine::Install(const Image& image) { programs.Install(image); }

void Machine::Install(std::wstring_view path, std::function<int()> entry)
{
    programs.Install(path, std::move(entry));
}

Process* Machine::StartInstalled(std::wstring_view path, std::wstring_view command_line,
                                 std::optional<Launch> launch)
{
    return programs.StartInstalled(path, command_line, std::move(launch));
}

Process& Machine::Start(const Image& image, std::wstring_view arguments)
{
    return programs.Start(image, arguments);
}

Process& Machine::Start(std::function<int()> entry, std::wstring_view command_line)
{
    return programs.Start(std::move(entry), command_line);
}

void Machine::KillAtCall(std::wstring_view program, std::uint64_t number)
{
    programs.AtCall(program, number, [](Process& process) { process.Terminate(1); });
}

const std::vector<std::unique_ptr<Process>>& Machine::processes() const
{
    return programs.processes();
}

}  // namespace virtual_pc
