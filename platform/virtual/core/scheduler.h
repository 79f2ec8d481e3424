// Decides which thread runs, and when the clock moves.
//
// Deterministic: one thread has the baton and the others stand still, each on a signal of its own.
// The baton passes when its holder blocks or ends and, where a seed was given, at any platform
// call. Free: threads run at once under the host's scheduler, and only time is the machine's.
//
// Either way the clock stands while a thread can run. When all are blocked, it jumps to the next
// alarm. The driver is the least urgent thread of the machine: it goes on when no other thread can
// run and no alarm is left before its deadline.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/kernel.h"
#include "platform/virtual/base/random.h"
#include "platform/virtual/base/time.h"

namespace virtual_pc {

class Machine;
class Thread;

// Something that is called at a set time. All calls are made with the machine held.
class Alarm
{
public:
    virtual ~Alarm() = default;
    bool armed() const { return m_armed; }
    // Whether it would wake the machine from sleep.
    virtual bool Wakes() const { return false; }
    // Whether the time asleep counts. Where it does not, the alarm comes later by the time asleep.
    virtual bool CountsSleep() const { return true; }

protected:
    // Called when the clock has reached the time that the alarm was set to; it is no longer armed.
    virtual void Due() = 0;

private:
    friend class Scheduler;
    std::multimap<Instant, Alarm*>::iterator m_place;
    bool m_armed = false;
    bool m_postponed = false;
};

// Thrown to the driver when all threads are blocked for ever, or block one another by their locks.
class StuckMachine : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// Thrown to the driver when its run was stopped from outside. The machine is whole, and can run on.
class Interrupted : public std::runtime_error
{
public:
    Interrupted() : std::runtime_error("interrupted") {}
};

class Scheduler
{
public:
    // One departure from the fixed order: at the `point`th place where another thread could run
    // instead, the one that runs.
    struct Departure
    {
        std::uint64_t point;
        std::size_t choice;
    };
    // A place where another thread could run instead: when, and how many could.
    struct Point
    {
        Instant at;
        std::size_t choices;
    };

    struct Options
    {
        bool free = false;
        // Draws the thread that runs next from this seed; 0 keeps the fixed order.
        std::uint64_t seed = 0;
        // Above 0, and with a seed: each thread has a drawn priority, the highest runs, and the
        // running one falls below all others at so many calls less one in some thousands.
        int priorities = 0;
        // Without a seed, from CountPoints on.
        std::vector<Departure> departures = {};
        // Machine seconds for each second of the host's clock; 0 does not wait for it at all.
        double pace = 0;
        // Asked, with the machine held, whenever all threads of a machine that the driver runs are
        // blocked, and now and then while a jump of the clock waits: whether to go on.
        std::function<bool()> go_on = {};
    };

    Scheduler(Machine& machine, const Options& options);

    Instant now() const { return m_now; }
    // When the driver's present run ends at the latest.
    Instant driver_deadline() const { return m_driver_deadline; }

    void Set(Alarm& alarm, Instant when);
    void Cancel(Alarm& alarm);

    // The thread that drives the machine; it runs already.
    void SetDriver(Thread& driver) { m_driver = &driver; }

    // Starts a host thread for `thread`, which runs when its turn comes.
    void Start(std::shared_ptr<Thread> thread);

    // Blocks the calling thread until MakeReady. `self.wait` must say what it waits for. With the
    // machine held once. Throws ThreadEnds, or returns at once while unwinding, when the thread's
    // process has ended.
    void Block(Thread& self);
    void MakeReady(Thread& thread);

    // Called at the beginning of every platform call: may hand over to another ready thread when
    // there is a seed, and waits for GoOn while the machine stands still.
    void Preempt(Thread& self);
    // Hands over to the thread that has been ready longest, if any is ready.
    void Yield(Thread& self);

    // From now on, or from now on not, the places where another thread could run are counted, and
    // the departures made. They are the beginnings of calls and the ends of turns.
    void CountPoints(bool count) { m_counts_points = count; }
    const std::vector<Point>& points() const { return m_points; }

    // From now on only the driver runs, and the clock goes on. Ready threads are frozen, running
    // ones at their next platform call, until GoOn. Alarms that count sleep still fire at their
    // times.
    void StandStill();
    void GoOn();
    // How long the machine has stood still in all, but for the present time.
    Duration slept() const { return m_slept; }

    // Called by the driver: runs the machine until `deadline`, or until `condition`, which is
    // checked whenever all threads are blocked, holds. Returns whether it held. Throws
    // StuckMachine, and Interrupted when Options::go_on says no.
    bool RunMachine(Instant deadline, const std::function<bool()>& condition);

    // From now on no run is stopped: what ends the machine runs to its end.
    void GoOnToTheEnd() { m_options.go_on = nullptr; }

    // What each thread waits for, a line for each.
    std::string Report() const;

    const std::vector<std::shared_ptr<Thread>>& threads() const { return m_threads; }
    Thread* FindThread(DWORD id) const;

    // Joins the host threads: all of them, or only those that are done.
    void JoinHostThreads(bool all);

private:
    struct HostThread
    {
        std::thread thread;
        std::atomic<bool> done{false};
    };

    Instant Postponed(Instant when) const { return when + (m_still_since - m_now); }
    void Advance();
    void FireNext();
    bool Pace(Instant to);
    bool Stopped() const { return m_machine_runs && m_options.go_on && !m_options.go_on(); }
    void ReportStuck(std::string_view why);
    bool AnyThreadMayRun() const;
    bool NothingWakes() const;
    Thread& Choose();
    std::size_t PlaceOfNext();
    std::size_t PlaceOfHighest() const;
    std::optional<std::size_t> Depart(std::size_t choices);
    void LowerInTurn(Thread& self);
    void SwitchTo(Thread& next);
    void LetRun(Thread& self, std::size_t place);
    void AwaitGoOn(Thread& self);
    void RunThread(Thread& thread);
    void End(Thread& thread);
    bool InLockCircle(const Thread& thread) const;

    Machine& m_machine;
    Options m_options;
    Random m_random;
    std::uint64_t m_calls_to_change = 0;  // until the running thread's priority falls
    std::int64_t m_lowest = 0;            // the last priority given to one that fell
    bool m_counts_points = false;
    std::vector<Point> m_points;
    Instant m_now{0};
    std::multimap<Instant, Alarm*> m_alarms;
    // While the machine stands still, the alarms that do not count sleep, at the times at which
    // they would come if it went on at m_still_since.
    std::multimap<Instant, Alarm*> m_postponed;
    Instant m_still_since{0};
    Duration m_slept{0};
    std::vector<std::shared_ptr<Thread>> m_threads;

    // Deterministic mode: the ready threads, longest ready first. Free mode: the threads that are
    // held back while the machine stands still.
    std::vector<Thread*> m_ready;
    int m_awake = 1;  // free mode: how many threads are not blocked, including the driver
    bool m_still = false;

    Thread* m_driver = nullptr;
    bool m_machine_runs = false;  // the driver is in RunMachine
    Instant m_driver_deadline = kNever;
    const std::function<bool()>* m_driver_condition = nullptr;
    bool m_condition_held = false;
    bool m_interrupted = false;  // until Block throws Interrupted to the driver
    std::string m_stuck;         // the report, until Block throws it to the driver

    std::list<HostThread> m_host_threads;
    std::chrono::steady_clock::time_point m_paced_from_host;
    Instant m_paced_from{0};
};

}  // namespace virtual_pc
