// Processes and the images they run.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/module.h"
#include "platform/virtual/base/time.h"
#include "platform/virtual/core/handles.h"
#include "platform/virtual/core/launch.h"
#include "platform/virtual/core/waitable.h"

namespace virtual_pc {

class Machine;
class Thread;
class ThreadObject;

// A program: the host's loadable image, and where it lies on the PC's disk.
struct Image
{
    // The loadable image on the host.
    std::string host_path;
    // Its path on the PC's disk.
    std::wstring path = LR"(C:\Program Files\Orbeq\Holv\HOLVService.exe)";
    // The folder on the host that holds the image's resources: its message and string tables, and
    // beside it the description of its type library. The source tree's resources/; empty for an
    // image without.
    std::string resources = {};
};

// An image in memory. Each load is a copy of its own, so that two processes of one program, or two
// runs of it, share nothing.
class LoadedImage
{
public:
    // Throws std::runtime_error with the loader's words.
    explicit LoadedImage(const Image& image);
    ~LoadedImage();
    LoadedImage(const LoadedImage&) = delete;
    LoadedImage& operator=(const LoadedImage&) = delete;

    // The address of an exported symbol, as a debugger finds it; null when there is none.
    void* Find(const char* symbol) const;

private:
    int m_file = -1;
    void* m_library = nullptr;
};

class Process;

// What a process's handle stands for; signalled when the process has ended.
class ProcessObject final : public Waitable
{
public:
    explicit ProcessObject(Process& whose) : process(whose) {}
    std::string_view Kind() const override { return "process"; }
    std::wstring Name() const override;

    Process& process;
};

class Process
{
public:
    // `start` counts the starts of the program.
    Process(std::shared_ptr<const Image> image, std::wstring_view command_line,
            std::optional<Launch> how, std::uint64_t start);

    // Starts its first thread, which runs `entry` or, when that is empty, the image. Called once,
    // with the machine held.
    void Begin(Machine& machine, std::function<int()> entry);

    DWORD id() const { return m_id; }
    const std::wstring& path() const { return m_image->path; }
    std::wstring& command_line() { return m_command_line; }
    const std::wstring& command_line() const { return m_command_line; }
    bool running() const { return !m_ended; }
    // Whether it has ended, has been killed, or its first thread waits for the others to end;
    // callers start no more threads in it then.
    bool ending() const { return m_last != nullptr || m_killed; }
    // Whether it was terminated from outside or has crashed. It runs nothing from then on, and its
    // calls have no effect; the machine closes what it has open.
    bool killed() const { return m_killed; }
    // Whether a thread was still at work as the process ended: it has gone without releasing what
    // it held, as on a real PC.
    std::atomic<bool> lost_thread = false;
    // Valid once it has ended.
    int exit_code() const { return m_exit_code; }
    // Whether an unhandled exception ended it.
    bool crashed() const { return m_crashed; }
    const Image& image() const { return *m_image; }
    // What it had left open when it ended, unless it was killed; the machine has closed it.
    const std::vector<LeftOpen>& left_open() const { return m_left_open; }

    // When it was started, in UTC.
    CalendarTime started() const { return m_started; }

    // How CreateProcessAsUserW started it; empty when something else did.
    std::optional<Launch> launch;
    // Whether the privilege to end other users' processes is enabled.
    bool debug_privilege = false;

    // Kills it as TerminateProcess does. False when it has ended or is ending already. With the
    // machine held.
    bool Terminate(int exit_code);

    // How many platform functions its threads have called, from its start.
    std::uint64_t calls() const { return m_calls; }
    // Runs `deed` in place of the call with this number, counted from 1, with the machine held; the
    // call goes on after it, unless the deed kills the process. One at a time. With the machine
    // held, and not for a call that has been made.
    void AtCall(std::uint64_t number, std::function<void(Process&)> deed);
    // For Call.
    void CountCall()
    {
        const std::uint64_t number = m_calls.load(std::memory_order_relaxed) + 1;
        m_calls.store(number, std::memory_order_relaxed);
        if (number == m_deed_at) DoDeed();
    }

    std::shared_ptr<Waitable> object() const { return m_object; }
    std::shared_ptr<Waitable> first_thread() const;
    DWORD first_thread_id() const { return m_first_thread_id; }

    // Starts a thread of the process. With the machine held.
    std::shared_ptr<Thread> StartThread(Machine& machine, std::function<DWORD()> body);
    // Runs the body of a thread; an exception that escapes it ends the process.
    void Guard(Thread& self, const std::function<void()>& body);

    // The address of a symbol of its image; null when there is none, when the process has ended, or
    // when it runs a function of the host.
    void* Find(const char* symbol) const;

    // Runs the process's unhandled-exception filter with this exception on a thread of the
    // process, and then ends it, as the system does.
    void Crash(const EXCEPTION_RECORD& record);

    LPTOP_LEVEL_EXCEPTION_FILTER exception_filter = nullptr;
    DWORD tls_slots = 0;

private:
    friend class Machine;
    friend class Scheduler;

    int RunImage(Thread& self);
    void Unhandled(Thread& self, EXCEPTION_RECORD record);
    void DoDeed();
    // Marks the process's threads, but one, to end at their next platform call.
    void EndThreads(Machine& machine, const Thread* but);
    // For the driver: kills it, and runs the machine until it has ended.
    void Kill();
    void CloseWhatIsOpen(Machine& machine, std::vector<std::shared_ptr<Object>>& closed);
    // On the process's first thread: waits for the others to end, and closes what is left open.
    void End(Thread& last, int exit_code);

    DWORD m_id = 0;
    CalendarTime m_started{0};
    const std::shared_ptr<const Image> m_image;
    std::wstring m_command_line;
    std::unique_ptr<LoadedImage> m_loaded;
    std::shared_ptr<ProcessObject> m_object = std::make_shared<ProcessObject>(*this);
    std::shared_ptr<ThreadObject> m_first_thread;
    DWORD m_first_thread_id = 0;
    std::optional<int> m_ended_with;  // the argument of Terminate
    int m_exit_code = 0;
    std::atomic<bool> m_ended = false;  // set last: a thread that reads true may read the rest
    std::atomic<bool> m_killed = false;
    // With the machine held, but for reading the count.
    std::atomic<std::uint64_t> m_calls = 0;
    std::uint64_t m_deed_at = 0;
    const std::uint64_t m_start;
    std::uint64_t m_threads_started = 0;
    std::function<void(Process&)> m_deed;
    bool m_crashed = false;
    const Thread* m_last = nullptr;  // the thread that is in End
    std::vector<LeftOpen> m_left_open;
};

}  // namespace virtual_pc
