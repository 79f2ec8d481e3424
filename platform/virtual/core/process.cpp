#include "platform/virtual/core/process.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/virtual/base/random.h"
#include "platform/virtual/core/leaving.h"
#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/thread.h"

namespace virtual_pc {

// --- Images ---

namespace {

// The loader has such a lock of its own, which the thread sanitizer does not see: it would hold an
// image that is loaded where another has just been unloaded against that one's threads.
std::mutex g_loading;

// The calling thread loads or unloads an image as long as it lives.
class Loading
{
public:
    Loading() : m_lock(g_loading), m_thread(Thread::Self()) { Note(true); }
    ~Loading() { Note(false); }
    Loading(const Loading&) = delete;
    Loading& operator=(const Loading&) = delete;

private:
    void Note(bool loads) const
    {
        if (m_thread) m_thread->loads = loads;
    }

    const std::scoped_lock<std::mutex> m_lock;
    Thread* const m_thread;
};

}  // namespace

// The loader gives the same image to every load of a file, so each load gets a copy of the file, in
// memory.
LoadedImage::LoadedImage(const Image& image)
{
    const auto fail = [&](const std::string& why) {
        if (m_file >= 0) close(m_file);
        throw std::runtime_error(image.host_path + ": " + why);
    };
    const int source = open(image.host_path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status
    {
    };
    if (source < 0 || fstat(source, &status) != 0) fail("cannot be read");
    m_file =
        memfd_create(image.host_path.substr(image.host_path.rfind('/') + 1).c_str(), MFD_CLOEXEC);
    for (off_t sent = 0; sent < status.st_size;) {
        const ssize_t part =
            sendfile(m_file, source, &sent, static_cast<std::size_t>(status.st_size - sent));
        if (part <= 0) {
            close(source);
            fail("cannot be copied");
        }
    }
    close(source);
    // Not by /proc/self: a debugger opens this path in its own process.
    const std::string path = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(m_file);
    {
        const Loading loading;
        m_library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    }
    if (!m_library) fail(dlerror());
}

LoadedImage::~LoadedImage()
{
    {
        const Loading loading;
        dlclose(m_library);
    }
    close(m_file);
}

void* LoadedImage::Find(const char* symbol) const { return dlsym(m_library, symbol); }

// --- Processes ---

void* Process::Find(const char* symbol) const
{
    return m_loaded ? m_loaded->Find(symbol) : nullptr;
}

Process::Process(std::shared_ptr<const Image> image, std::wstring_view command_line,
                 std::optional<Launch> how, std::uint64_t start)
    : launch(std::move(how)),
      m_image(std::move(image)),
      m_command_line(command_line),
      m_start(start)
{
}

void Process::Begin(Machine& machine, std::function<int()> entry)
{
    Hold::Require();
    m_id = machine.m_next_process_id;
    machine.m_next_process_id += 4;
    m_started = machine.clock() - kEastOfUtc;
    machine.journal.Record("process", {{"what", L"started"},
                                       {"path", m_image->path},
                                       {"command_line", m_command_line},
                                       {"id", std::uint64_t{m_id}},
                                       {"user", launch ? launch->user : L""}});
    const auto first = StartThread(machine, [this, entry = std::move(entry)]() -> DWORD {
        Thread& self = *Thread::Self();
        int exit_code = 1;
        Guard(self, [&] { exit_code = entry ? entry() : RunImage(self); });
        End(self, exit_code);
        return static_cast<DWORD>(exit_code);
    });
    m_first_thread = first->object;
    m_first_thread_id = first->id;
}

std::shared_ptr<Thread> Process::StartThread(Machine& machine, std::function<DWORD()> body)
{
    Hold::Require();
    auto thread = std::make_shared<Thread>();
    thread->id = machine.m_next_thread_id;
    machine.m_next_thread_id += 4;
    thread->process = this;
    thread->key = ++m_threads_started + (m_start << 32);
    for (const wchar_t letter : m_image->path) thread->key = Random(thread->key, letter).Next();
    thread->object = std::make_shared<ThreadObject>();
    thread->body = std::move(body);
    // A thread that is started while the process ends never runs.
    thread->ends = thread->vanishes = m_killed || m_last;
    machine.scheduler.Start(thread);
    return thread;
}

// Runs `body`; an exception that escapes it ends the process.
void Process::Guard(Thread& self, const std::function<void()>& body)
{
    try {
        EnterProcess(body);
    } catch (const ThreadEnds&) {
    } catch (const RaisedException& raised) {
        EXCEPTION_RECORD record{};
        record.ExceptionCode = raised.code;
        Unhandled(self, record);
    } catch (...) {
        EXCEPTION_RECORD record{};
        record.ExceptionCode = 0xE06D7363;  // the code of a C++ exception
        Unhandled(self, record);
    }
}

int Process::RunImage(Thread& self)
{
    self.keeps_on = true;
    auto loaded = std::make_unique<LoadedImage>(*m_image);
    self.keeps_on = false;
    using Entry = int(WINAPI*)(HINSTANCE, HINSTANCE, LPWSTR, int);
    const auto entry = reinterpret_cast<Entry>(loaded->Find("wWinMain"));
    if (!entry) throw std::runtime_error(m_image->host_path + ": has no wWinMain");
    {
        const Hold hold(Machine::Current());
        m_loaded = std::move(loaded);
        Machine& machine = Machine::Current();
        if (machine.image_loaded) machine.image_loaded(*this);
    }
    constexpr int kShowNormal = 1;
    return entry(nullptr, nullptr, m_command_line.data(), kShowNormal);
}

// The last-chance filter runs on the thread that failed; then the process ends.
void Process::Unhandled(Thread& self, EXCEPTION_RECORD record)
{
    LPTOP_LEVEL_EXCEPTION_FILTER filter = nullptr;
    Machine& machine = Machine::Current();
    {
        const Hold hold(machine);
        m_crashed = true;
        filter = exception_filter;
    }
    EXCEPTION_POINTERS pointers{&record, nullptr};
    if (filter) {
        try {
            EnterProcess([&] { filter(&pointers); });
        } catch (const ThreadEnds&) {
            // Another thread has ended the process in the meantime.
        }
    }
    const Hold hold(machine);
    m_killed = true;
    EndThreads(machine, &self);
}

void Process::DoDeed()
{
    m_deed_at = 0;
    std::exchange(m_deed, {})(*this);
}

void Process::AtCall(std::uint64_t number, std::function<void(Process&)> deed)
{
    Hold::Require();
    m_deed_at = number;
    m_deed = std::move(deed);
}

void Process::EndThreads(Machine& machine, const Thread* but)
{
    for (const auto& thread : machine.scheduler.threads()) {
        if (thread->process != this || thread.get() == but || thread.get() == m_last) continue;
        thread->ends = true;
        thread->vanishes = m_killed.load();
        machine.scheduler.MakeReady(*thread);
    }
}

void Process::Crash(const EXCEPTION_RECORD& record)
{
    Machine& machine = Machine::Current();
    const Hold hold(machine);
    StartThread(machine, [this, record]() -> DWORD {
        Unhandled(*Thread::Self(), record);
        return record.ExceptionCode;
    });
}

std::wstring ProcessObject::Name() const { return process.path(); }

std::shared_ptr<Waitable> Process::first_thread() const { return m_first_thread; }

bool Process::Terminate(int exit_code)
{
    Hold::Require();
    if (m_ended || m_killed) return false;
    const bool ends_by_itself = m_last != nullptr;
    m_killed = true;
    if (!ends_by_itself) m_ended_with = exit_code;
    EndThreads(Machine::Current(), nullptr);
    return !ends_by_itself;
}

void Process::Kill()
{
    Machine& machine = Machine::Current();
    const Hold hold(machine);
    Terminate(1);
    machine.scheduler.RunMachine(kNever, [this] { return !running(); });
}

void Process::End(Thread& last, int exit_code)
{
    Machine& machine = Machine::Current();
    std::unique_ptr<LoadedImage> loaded;
    std::vector<std::shared_ptr<Object>> closed;
    {
        const Hold hold(machine);
        last.ends = last.vanishes = false;
        last.keeps_on = true;
        m_last = &last;
        EndThreads(machine, &last);
        // What comes from outside, as a notice of the sound system, may start another meanwhile.
        const auto other = [&](const std::shared_ptr<Thread>& thread) {
            return thread->process == this && thread.get() != &last;
        };
        const auto& threads = machine.scheduler.threads();
        for (auto left = threads.begin();
             (left = std::ranges::find_if(threads, other)) != threads.end();) {
            Waitable::WaitFor(machine, last, {(*left)->object}, false, kNever);
        }
        if (machine.process_ending) machine.process_ending(*this);
        machine.LookAtWatch();
        if (m_loaded) machine.EndWatchOf(*this);
        if (m_killed) CloseWhatIsOpen(machine, closed);
        loaded = std::move(m_loaded);
    }
    // Unloading destroys its static objects, which may still call the platform.
    loaded.reset();

    const Hold hold(machine);
    CloseWhatIsOpen(machine, closed);
    closed.clear();
    m_exit_code = exit_code = m_ended_with.value_or(exit_code);
    m_ended = true;
    m_object->Signal();
    if (machine.process_ended) machine.process_ended(*this);
    machine.journal.Record("process", {{"what", L"ended"},
                                       {"path", m_image->path},
                                       {"id", std::uint64_t{m_id}},
                                       {"exit_code", std::int64_t{exit_code}},
                                       {"killed", m_ended_with.has_value()}});
}

void Process::CloseWhatIsOpen(Machine& machine, std::vector<std::shared_ptr<Object>>& closed)
{
    for (LeftOpen& left : machine.handles.CloseAllOf(this, closed)) {
        // A killed process could close nothing.
        if (!m_killed) m_left_open.push_back(std::move(left));
    }
    std::erase_if(machine.memory_handles,
                  [&](const auto& memory) { return machine.handles.IsStale(memory.second); });
}

}  // namespace virtual_pc
