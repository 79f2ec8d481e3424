#include "platform/virtual/machine.h"

#include <algorithm>
#include <stdexcept>

#include "platform/virtual/names.h"
#include "platform/virtual/thread.h"

namespace virtual_pc {
namespace {

Machine* g_machine = nullptr;
thread_local int t_holds = 0;

constexpr std::string_view kFirstClock = "2026-03-02 08:00";  // a Monday

}  // namespace

void Hold::Enter(const Machine& machine)
{
    if (t_holds++ == 0) machine.m_mutex.lock();
}

Hold::~Hold()
{
    if (--t_holds == 0) m_machine.m_mutex.unlock();
}

bool Hold::Once() { return t_holds == 1; }

Machine::Machine(const Options& options)
    : scheduler(*this, {.free = options.free, .seed = options.seed, .pace = options.pace}),
      faults(options.seed),
      registry(*this),
      disk(*this, options.root.empty() ? options.root : options.root / "C"),
      outputs(*this),
      event_log(*this),
      com(*this, options.seed),
      m_switched_on_at(*ParseCalendar(kFirstClock)),
      m_driver(std::make_shared<Thread>()),
      m_registry_file(options.root.empty() ? options.root : options.root / "registry.reg")
{
    if (g_machine) throw std::logic_error("there is a virtual PC already");
    if (!options.free) m_one_core.emplace();
    g_machine = this;
    m_driver->state = Thread::State::running;
    Thread::SetSelf(m_driver.get());
    scheduler.SetDriver(*m_driver);
    com.start_service = [this](const std::wstring& name) -> HRESULT {
        const DWORD error = services.Start(name);
        return error == ERROR_SERVICE_ALREADY_RUNNING ? S_OK : HRESULT_FROM_WIN32(error);
    };
    if (!m_registry_file.empty()) registry.Load(m_registry_file);
}

Machine::~Machine()
{
    {
        // No thread of a sleeping machine could run to its end.
        const Hold hold(*this);
        scheduler.GoOn();
    }
    for (const auto& process : m_processes) {
        if (process->running()) process->Kill();
    }
    scheduler.JoinHostThreads(true);
    if (!m_registry_file.empty()) {
        try {
            registry.Save(m_registry_file);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "the registry was not kept: %s\n", error.what());
        }
    }
    Thread::SetSelf(nullptr);
    g_machine = nullptr;
}

Machine& Machine::Current() { return *g_machine; }
bool Machine::Exists() { return g_machine != nullptr; }

void Machine::SetClock(CalendarTime local)
{
    const Hold hold(*this);
    m_switched_on_at = local - now();
    journal.Record("clock", {});
    announcer.TimeChanged();
}

void Machine::ShiftClock(Duration by)
{
    const Hold hold(*this);
    m_switched_on_at += by;
    journal.Record("clock", {});
}

void Machine::RunFor(Duration duration)
{
    const Hold hold(*this);
    scheduler.RunMachine(now() + duration, {});
}

bool Machine::RunUntil(const std::function<bool()>& condition, Duration max)
{
    const Hold hold(*this);
    return scheduler.RunMachine(max == Duration::max() ? kNever : now() + max, condition);
}

void Machine::RunUntilEnd(const Process& process)
{
    RunUntil([&] { return !process.running(); });
}

// Effect "power switch": `what` was done, on or off.
void Machine::Boot()
{
    journal.Record("power switch", {{"what", L"on"}});
    services.Boot();
    Settle();
}

void Machine::ShutDown()
{
    services.Shutdown();
    RunUntil([this] { return services.AllEnded(); }, std::chrono::seconds{20});
    {
        const Hold hold(*this);
        for (const auto& process : m_processes) process->Terminate(1);
    }
    RunUntil([this] {
        return std::ranges::none_of(m_processes, [](const auto& p) { return p->running(); });
    });
    journal.Record("power switch", {{"what", L"off"}});
}

void Machine::Install(const Image& image)
{
    const Hold hold(*this);
    std::erase_if(m_programs, [&](const Program& known) { return known.image.path == image.path; });
    m_programs.push_back({image, {}});
    disk.Write(image.path, "MZ");  // nothing on the PC reads it
    if (image.resources.empty()) return;
    event_log.AddMessageFile(image.path, image.resources / "HOLVService.mc");
    com.type_libraries.Add(image.path, image.resources.parent_path() / "api" / "HOLVAgentLib.idl");
}

void Machine::Install(std::wstring_view path, std::function<int()> entry)
{
    const Hold hold(*this);
    Image image;
    image.path = path;
    Install(image);
    m_programs.back().entry = std::move(entry);
}

Process* Machine::StartInstalled(std::wstring_view path, std::wstring_view command_line,
                                 std::optional<Launch> launch)
{
    const Hold hold(*this);
    const auto same = [&](const Program& program) { return SameName(program.image.path, path); };
    const auto found = std::ranges::find_if(m_programs, same);
    if (found == m_programs.end() || !disk.Read(found->image.path)) return nullptr;
    return &Begin(*found, command_line, std::move(launch));
}

Process* Machine::StartCommandLine(std::wstring_view command_line, std::optional<Launch> launch,
                                   DWORD& error)
{
    const Hold hold(*this);
    error = ERROR_FILE_NOT_FOUND;
    for (const std::wstring& path : CandidatePrograms(command_line)) {
        std::optional<std::string> file;
        try {
            file = disk.Read(path);
        } catch (const std::invalid_argument&) {
            // Not a path on the disk.
        }
        if (!file) continue;
        Process* process = StartInstalled(path, command_line, std::move(launch));
        error = process ? ERROR_SUCCESS : ERROR_BAD_EXE_FORMAT;
        return process;
    }
    return nullptr;
}

Process& Machine::Start(const Image& image, std::wstring_view arguments)
{
    const Hold hold(*this);
    Install(image);
    std::wstring command_line = L"\"" + image.path + L"\"";
    if (!arguments.empty()) command_line += L" " + std::wstring(arguments);
    return Begin(m_programs.back(), command_line);
}

Process& Machine::Start(std::function<int()> entry, std::wstring_view command_line)
{
    const Hold hold(*this);
    Install(Image{}.path, std::move(entry));
    return Begin(m_programs.back(), command_line);
}

Process& Machine::Begin(const Program& program, std::wstring_view command_line,
                        std::optional<Launch> launch)
{
    Process& process = *m_processes.emplace_back(std::make_unique<Process>());
    process.m_image = program.image;
    process.m_path = program.image.path;
    process.m_command_line = command_line;
    process.launch = std::move(launch);
    process.Begin(
        *this, program.entry ? program.entry : [&process] { return process.RunImage(); });
    return process;
}

std::vector<std::string> Machine::misuses() const
{
    const Hold hold(*this);
    return m_misuses;
}

void Machine::NoteMisuse(std::string what)
{
    const Hold hold(*this);
    m_misuses.push_back(std::move(what));
}

void Machine::Watch(const std::atomic<std::int32_t>* address,
                    std::function<void(std::int32_t, std::int32_t)> changed)
{
    const Hold hold(*this);
    m_watched = address;
    m_watched_value = address ? address->load() : 0;
    m_watch_changed = std::move(changed);
}

void Machine::LookAtWatch()
{
    if (!m_watched) return;
    const std::int32_t value = m_watched->load();
    if (value == m_watched_value) return;
    m_watch_changed(std::exchange(m_watched_value, value), value);
}

}  // namespace virtual_pc
