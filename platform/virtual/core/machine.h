// The virtual PC, as scripts and tests drive it.
//
//     Machine pc;
//     pc.registry.SetDword(LR"(HKLM\Software\Orbeq\Holv\User)", L"MuteAudio", 1);
//     Process& service = pc.Start(Image(path), L"-Debug");
//     pc.RunFor(30min);
//     pc.RunUntilEnd(service);
//
// One machine exists at a time in a host process. The host thread that makes it is its driver:
// while the driver acts, the machine's threads stand still (deterministic mode) or run on at a
// standing clock (free mode); the clock moves inside the Run operations.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/virtual/base/os_version.h"
#include "platform/virtual/base/time.h"
#include "platform/virtual/core/faults.h"
#include "platform/virtual/core/handles.h"
#include "platform/virtual/core/journal.h"
#include "platform/virtual/core/launch.h"
#include "platform/virtual/core/scheduler.h"
#include "platform/virtual/core/slowness.h"
#include "platform/virtual/core/unwritten.h"

namespace virtual_pc {

class OneCore;
class Process;
class Thread;
class Waker;
struct Image;

// The facets; each has a header of its own, which its users include.
class Announcer;
class Audio;
class Battery;
class Com;
struct Cpu;
class Devices;
class Disk;
class EventLog;
struct Libraries;
class Outputs;
class Power;
class Processor;
class Programs;
class Registry;
class ServiceManager;
class Session;
class SleepState;
class User;
struct Facets;

class Machine
{
    // First, so that they outlive every facet and every thread.
    std::unique_ptr<OneCore> m_one_core;  // null when threads run free
    mutable std::mutex m_mutex;
    CalendarTime m_switched_on_at;
    bool m_on = true;

public:
    struct Options
    {
        bool free = false;
        std::uint64_t seed = 0;
        int priorities = 0;                                 // as the scheduler's
        std::vector<Scheduler::Departure> departures = {};  // likewise
        double pace = 0;
        // Where the PC's disk and registry are kept between runs; empty: thrown away with it.
        std::string root = {};
        DWORD os_version = kWindows10;
        // As Scheduler::Options::go_on.
        std::function<bool()> go_on = {};
    };

    Machine() : Machine(Options{}) {}
    explicit Machine(const Options& options);
    // Ends the processes that still run, and waits for their threads.
    ~Machine();
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    // The machine that exists; there must be one.
    static Machine& Current();
    static bool Exists();

    // --- Time ---
    Instant now() const { return scheduler.now(); }
    CalendarTime clock() const { return m_switched_on_at + now(); }
    // Sets the clock to a local time and announces that, as when a user sets it.
    void SetClock(CalendarTime local);
    // Moves the clock without an announcement, as daylight saving does at its start and end.
    void ShiftClock(Duration by);

    // Runs the machine for a time. Throws Interrupted when Options::go_on says no, as RunUntil
    // does.
    void RunFor(Duration duration);
    // Runs it until `condition`, which is checked whenever all threads are blocked, holds, or `max`
    // has passed. Returns whether it held. Throws StuckMachine when all threads are blocked for
    // ever.
    bool RunUntil(const std::function<bool()>& condition, Duration max = Duration::max());
    void RunUntilEnd(const Process& process);
    // Runs the threads that can run, until all are blocked, without moving the clock.
    void Settle()
    {
        if (!at_one_instant) RunFor(Duration{0});
    }
    // While it is set, Settle does nothing: what the driver does happens at one instant.
    bool at_one_instant = false;

    // --- The power switch ---
    // Starts the services that start by themselves, as at power-on.
    void Boot();
    // Sends the services the shutdown control, waits for their processes, and terminates those that
    // still run after the time that the registry allows: 5 seconds unless set, on Windows 7 20.
    void ShutDown();
    // Cuts the power, in a call of a process as well: all processes are killed, and the disk, the
    // registry and the power plans are left as they were written there (unwritten.h).
    void CutPower();
    // The same in place of a call, as KillAtCall.
    void CutPowerAtCall(std::wstring_view program, std::uint64_t number);
    // Whether the PC is on: from the start, and from Boot, to CutPower.
    bool on() const { return m_on; }

    // --- Processes ---
    // Puts a program on the disk: an image, or a function of the host program that it runs.
    void Install(const Image& image);
    void Install(std::wstring_view path, std::function<int()> entry);
    // Starts the program at `path`, in any letter case; null when there is none on the disk.
    Process* StartInstalled(std::wstring_view path, std::wstring_view command_line,
                            std::optional<Launch> launch = {});
    // Installs and starts a program. The image is loaded anew, so its process-wide data are fresh.
    Process& Start(const Image& image, std::wstring_view arguments = {});
    // Runs a function of the host program as a process that has the path of the service's program,
    // as a test does. The program on the disk stays what it is.
    Process& Start(std::function<int()> entry, std::wstring_view command_line = L"test.exe");
    const std::vector<std::unique_ptr<Process>>& processes() const;
    // Kills a program's next process in place of its platform call with this number, counted from
    // the process's start. For each call in turn:
    //
    //     for (std::uint64_t n = 1;; ++n) {
    //         Machine pc;
    //         pc.KillAtCall(image.path, n);
    //         Process& process = pc.Start(image);
    //         pc.RunUntilEnd(process);
    //         if (!process.killed()) break;  // it has made process.calls() calls, fewer than n
    void KillAtCall(std::wstring_view program, std::uint64_t number);

    // Called with the machine held: when a process's image is in memory and about to run; when all
    // its threads but the last have ended and the image is still loaded; and when it has ended.
    std::function<void(Process&)> image_loaded;
    std::function<void(Process&)> process_ending;
    std::function<void(Process&)> process_ended;

    // Called at the machine's end when its registry or its event log cannot be kept, with which of
    // them and the reason. Unless set, that goes to the standard error.
    std::function<void(const std::string&)> not_kept;

    // --- The operating system ---
    // Its version, which decides what the PC announces, lists and counts (os_version.h).
    std::atomic<DWORD> os_version{kWindows10};
    bool AtLeast(DWORD version) const { return OsAtLeast(os_version, version); }

    // --- Misuse ---
    // Handles used or closed after their close, and the like: errors of the calling program.
    std::vector<std::string> misuses() const;
    void NoteMisuse(std::string what);

    // A watchpoint: every platform call compares the number at `address` with what it was, and
    // calls `changed` with the old and the new number when they differ. One at a time; null ends
    // it. It ends with the process in whose image the number lies, or, where none is named, with
    // any.
    void Watch(const std::atomic<std::int32_t>* address,
               std::function<void(std::int32_t, std::int32_t)> changed,
               const Process* process = nullptr);
    void EndWatchOf(const Process& process);
    void LookAtWatch();

    // --- What every facet stands on ---
    Scheduler scheduler;
    HandleTable handles;
    Journal journal{*this};
    Faults faults;
    Slowness slowness;
    Unwritten unwritten;

    // The handle of each piece of memory that is handed out (memory.h).
    std::map<const void*, HANDLE> memory_handles;

private:
    std::unique_ptr<Facets> m_facets;

public:
    // --- The facets ---
    Registry& registry;
    Devices& devices;
    EventLog& event_log;
    Announcer& announcer;
    Outputs& outputs;
    Disk& disk;
    Cpu& cpu;
    Libraries& libraries;
    Programs& programs;
    Power& power;
    Processor& processor;
    Battery& battery;
    User& user;
    SleepState& sleep;
    Waker& waker;  // `sleep`, by the interface that timers use
    Session& session;
    ServiceManager& services;
    Com& com;
    Audio& audio;

private:
    friend class Hold;
    friend class Process;
    friend class Scheduler;

    // The part of the construction that needs no facet.
    void SwitchOn(bool free);
    void SwitchOff();
    void ConnectFacets();
    // What a kept PC has besides its disk.
    void Load();
    void Keep();

    std::shared_ptr<Thread> m_driver;
    std::vector<std::string> m_misuses;
    std::string m_root;  // empty: not kept
    DWORD m_next_process_id = 0x400;
    DWORD m_next_thread_id = 0x1000;

    const std::atomic<std::int32_t>* m_watched = nullptr;
    const Process* m_watched_process = nullptr;
    std::int32_t m_watched_value = 0;
    std::function<void(std::int32_t, std::int32_t)> m_watch_changed;
};

// Locks the machine, with all its facets, for as long as the Hold exists. A thread may hold the
// machine several times over, so that facets can call one another; it must hold it exactly once
// when it blocks.
class Hold
{
public:
    explicit Hold(const Machine& machine) : m_machine(machine) { Enter(machine); }
    ~Hold();
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

    // Unlocks the machine, however often the calling thread holds it: for a thread that leaves the
    // frames that hold it.
    static void Release();
    // Whether the calling thread holds the machine exactly once, as it must to block.
    static bool Once();
    // Ends the host program when the calling thread does not hold the machine. For functions that
    // their callers must call with the machine held.
    static void Require();

    // For a thread that is ending: the scheduler unlocks the machine in its place.
    static void Enter(const Machine& machine);

private:
    const Machine& m_machine;
};

}  // namespace virtual_pc
