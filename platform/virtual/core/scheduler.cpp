#include "platform/virtual/core/scheduler.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <utility>

#include "platform/virtual/core/leaving.h"
#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/thread.h"

namespace virtual_pc {
namespace {

thread_local Thread* t_self = nullptr;

// Throws ThreadEnds when the thread's process has ended or has been killed, unless the thread is
// unwinding already.
void EndIfEnding(Thread& self)
{
    if (!EndIfKilled(self) && self.ends && std::uncaught_exceptions() == 0) throw ThreadEnds{};
}

}  // namespace

Thread* Thread::Self() { return t_self; }
void Thread::SetSelf(Thread* thread) { t_self = thread; }

Scheduler::Scheduler(Machine& machine, const Options& options)
    : m_machine(machine),
      m_options(options),
      m_random(options.seed),
      m_paced_from_host(std::chrono::steady_clock::now())
{
}

// --- Alarms ---

void Scheduler::Set(Alarm& alarm, Instant when)
{
    Hold::Require();
    Cancel(alarm);
    alarm.m_postponed = m_still && !alarm.CountsSleep();
    alarm.m_place = alarm.m_postponed ? m_postponed.emplace(Postponed(when), &alarm)
                                      : m_alarms.emplace(when, &alarm);
    alarm.m_armed = true;
}

void Scheduler::Cancel(Alarm& alarm)
{
    Hold::Require();
    if (!alarm.m_armed) return;
    (alarm.m_postponed ? m_postponed : m_alarms).erase(alarm.m_place);
    alarm.m_armed = false;
}

void Scheduler::FireNext()
{
    const Instant when = m_alarms.begin()->first;
    if (!Pace(when)) return;
    m_now = std::max(m_now, when);
    while (!m_alarms.empty() && m_alarms.begin()->first <= m_now) {
        Alarm& alarm = *m_alarms.begin()->second;
        m_alarms.erase(m_alarms.begin());
        alarm.m_armed = false;
        alarm.Due();
    }
}

// Waits until the host's clock is where the machine's is about to jump. Returns false when the run
// is stopped meanwhile.
bool Scheduler::Pace(Instant to)
{
    if (m_options.pace <= 0 || to == kNever) return true;
    using Clock = std::chrono::steady_clock;
    constexpr Clock::duration kSlice = std::chrono::milliseconds{50};
    const auto host = std::chrono::duration<double>(to - m_paced_from) / m_options.pace;
    const Clock::time_point until =
        m_paced_from_host + std::chrono::duration_cast<Clock::duration>(host);
    while (Clock::now() < until) {
        if (Stopped()) return false;
        std::this_thread::sleep_until(std::min(until, Clock::now() + kSlice));
    }
    return true;
}

// Called when all threads are blocked: wakes the driver when its condition holds or its deadline
// comes first, else moves the clock to the next alarm.
void Scheduler::Advance()
{
    const Instant next = m_alarms.empty() ? kNever : m_alarms.begin()->first;
    if (m_machine_runs) {
        if (Stopped()) {
            m_interrupted = true;
            return MakeReady(*m_driver);
        }
        if (m_driver_condition && *m_driver_condition && (*m_driver_condition)()) {
            m_condition_held = true;
            return MakeReady(*m_driver);
        }
        if (m_driver_deadline < next) {
            if (!Pace(m_driver_deadline)) return;
            m_now = std::max(m_now, m_driver_deadline);
            return MakeReady(*m_driver);
        }
    }
    if (NothingWakes()) return ReportStuck("the PC is asleep, and nothing is going to wake it");
    if (next == kNever) return ReportStuck("all threads are blocked, and no alarm is left");
    FireNext();
}

// Whether the machine stands still, no alarm would wake it, and the driver has no deadline. With a
// deadline the driver goes on in time, and may wake the machine then.
bool Scheduler::NothingWakes() const
{
    if (!m_still || !m_machine_runs || m_driver_deadline != kNever) return false;
    return std::ranges::none_of(m_alarms, [](const auto& alarm) { return alarm.second->Wakes(); });
}

void Scheduler::ReportStuck(std::string_view why)
{
    m_stuck = "the machine is stuck: " + std::string(why) + "\n" + Report();
    if (m_driver->state == Thread::State::blocked) MakeReady(*m_driver);
}

// --- Choosing the thread that runs ---

bool Scheduler::AnyThreadMayRun() const
{
    return m_still ? m_driver->state == Thread::State::ready : !m_ready.empty();
}

Thread& Scheduler::Choose()
{
    while (!AnyThreadMayRun()) Advance();
    const auto place = m_still ? std::ranges::find(m_ready, m_driver)
                               : m_ready.begin() + static_cast<std::ptrdiff_t>(PlaceOfNext());
    Thread& next = **place;
    m_ready.erase(place);
    return next;
}

// Nothing is drawn for a thread that is alone, so that a driver that looks at the machine more
// often changes nothing of its history.
std::size_t Scheduler::PlaceOfNext()
{
    if (m_ready.size() == 1) return 0;
    if (m_options.seed == 0) {
        const std::optional<std::size_t> other = Depart(m_ready.size() - 1);
        return other ? *other + 1 : 0;
    }
    return m_options.priorities > 0 ? PlaceOfHighest() : m_random.Below(m_ready.size());
}

std::size_t Scheduler::PlaceOfHighest() const
{
    const auto highest = std::ranges::max_element(m_ready, {}, &Thread::priority);
    return static_cast<std::size_t>(highest - m_ready.begin());
}

// Counts a call, at some of which the running thread's priority falls below all others.
void Scheduler::LowerInTurn(Thread& self)
{
    constexpr std::uint64_t kWindow = 4096;
    if (m_options.priorities < 2) return;
    if (m_calls_to_change == 0) {
        const auto changes = static_cast<std::uint64_t>(m_options.priorities) - 1;
        m_calls_to_change = 1 + m_random.Below(2 * kWindow / changes);
    }
    if (--m_calls_to_change == 0) self.priority = --m_lowest;
}

// Counts a point at which so many other threads could run, and chooses one of them where a
// departure from the fixed order is asked for.
std::optional<std::size_t> Scheduler::Depart(std::size_t choices)
{
    if (!m_counts_points) return std::nullopt;
    const std::uint64_t point = m_points.size();
    m_points.push_back({m_now, choices});
    const auto wanted = std::ranges::find(m_options.departures, point, &Departure::point);
    if (wanted == m_options.departures.end()) return std::nullopt;
    return std::min(wanted->choice, choices - 1);
}

// Passes the baton. Unlocks the machine before the wake-up, so that the woken thread does not block
// on the lock; the caller then waits for its own turn, or ends.
void Scheduler::SwitchTo(Thread& next)
{
    next.state = Thread::State::running;
    m_machine.m_mutex.unlock();
    next.signal.Raise();
}

void Scheduler::Block(Thread& self)
{
    EndIfEnding(self);
    if (self.ends) return;
    self.state = Thread::State::blocked;
    if (self.wait.lock && InLockCircle(self)) ReportStuck("threads wait for one another's locks");
    if (m_options.free) {
        --m_awake;
        while (m_awake == 0) Advance();
        m_machine.m_mutex.unlock();
        self.signal.Await();
        m_machine.m_mutex.lock();
    } else if (Thread& next = Choose(); &next != &self) {
        SwitchTo(next);
        self.signal.Await();
        m_machine.m_mutex.lock();
    } else {
        self.state = Thread::State::running;
    }
    if (&self == m_driver && std::exchange(m_interrupted, false)) throw Interrupted{};
    if (&self == m_driver && !m_stuck.empty()) throw StuckMachine(std::exchange(m_stuck, {}));
    EndIfEnding(self);
}

void Scheduler::MakeReady(Thread& thread)
{
    Hold::Require();
    if (thread.state != Thread::State::blocked) return;
    if (m_options.free && (!m_still || &thread == m_driver)) {
        thread.state = Thread::State::running;
        ++m_awake;
        thread.signal.Raise();
    } else {
        thread.state = Thread::State::ready;
        m_ready.push_back(&thread);
    }
}

void Scheduler::StandStill()
{
    m_still = true;
    m_still_since = m_now;
    for (auto at = m_alarms.begin(); at != m_alarms.end();) {
        const auto here = at++;
        Alarm& alarm = *here->second;
        if (alarm.CountsSleep()) continue;
        alarm.m_place = m_postponed.insert(m_alarms.extract(here));
        alarm.m_postponed = true;
    }
}

void Scheduler::GoOn()
{
    m_still = false;
    const Duration asleep = m_now - m_still_since;
    m_slept += asleep;
    for (const auto& [when, alarm] : std::exchange(m_postponed, {})) {
        alarm->m_place = m_alarms.emplace(when + asleep, alarm);
        alarm->m_postponed = false;
    }
    if (!m_options.free) return;
    for (Thread* thread : std::exchange(m_ready, {})) {
        thread->state = Thread::State::running;
        ++m_awake;
        thread->signal.Raise();
    }
}

// Called by a thread that makes a platform call while the machine stands still: waits for GoOn.
void Scheduler::AwaitGoOn(Thread& self)
{
    self.state = Thread::State::ready;
    m_ready.push_back(&self);
    if (m_options.free) {
        --m_awake;
        while (m_awake == 0) Advance();
        m_machine.m_mutex.unlock();
    } else if (Thread& next = Choose(); &next != &self) {
        SwitchTo(next);
    } else {
        self.state = Thread::State::running;
        return;
    }
    self.signal.Await();
    m_machine.m_mutex.lock();
}

void Scheduler::Preempt(Thread& self)
{
    if (self.loads) return;
    if (m_still && &self != m_driver && Hold::Once()) return AwaitGoOn(self);
    if (m_ready.empty() || &self == m_driver || !Hold::Once()) return;
    if (m_options.seed == 0) {
        if (const auto other = Depart(m_ready.size())) LetRun(self, *other);
        return;
    }
    if (m_options.priorities > 0) {
        LowerInTurn(self);
        const std::size_t highest = PlaceOfHighest();
        if (m_ready[highest]->priority > self.priority) LetRun(self, highest);
        return;
    }
    const std::uint64_t drawn = m_random.Below(m_ready.size() + 1);
    if (drawn < m_ready.size()) LetRun(self, drawn);
}

void Scheduler::Yield(Thread& self)
{
    if (!m_ready.empty()) LetRun(self, 0);
}

// Hands over to the ready thread at `place`; the caller queues behind the other ready threads.
void Scheduler::LetRun(Thread& self, std::size_t place)
{
    Thread& next = *m_ready[place];
    m_ready.erase(m_ready.begin() + static_cast<std::ptrdiff_t>(place));
    m_ready.push_back(&self);
    self.state = Thread::State::ready;
    SwitchTo(next);
    self.signal.Await();
    m_machine.m_mutex.lock();
}

bool Scheduler::RunMachine(Instant deadline, const std::function<bool()>& condition)
{
    m_machine_runs = true;
    m_driver_deadline = deadline;
    m_driver_condition = &condition;
    m_condition_held = false;
    m_driver->wait = {};
    m_driver->wait.what = "for the machine to run";
    struct Done
    {
        bool& runs;
        ~Done() { runs = false; }
    } done{m_machine_runs};
    Block(*m_driver);
    return m_condition_held;
}

// --- Threads ---

void Scheduler::Start(std::shared_ptr<Thread> thread)
{
    JoinHostThreads(false);
    thread->state = Thread::State::blocked;
    if (m_options.priorities > 0) {
        thread->priority = static_cast<std::int64_t>(m_random.Below(1'000'000));
    }
    MakeReady(*thread);

    HostThread& host = m_host_threads.emplace_back();
    host.thread = std::thread([this, thread, &host] {
        RunThread(*thread);
        host.done = true;
    });
    m_threads.push_back(std::move(thread));
}

void Scheduler::RunThread(Thread& thread)
{
    t_self = &thread;
    thread.signal.Await();
    thread.body();
    End(thread);
    t_self = nullptr;
}

void Scheduler::End(Thread& thread)
{
    Hold::Enter(m_machine);
    thread.state = Thread::State::ended;
    thread.object->Signal();
    std::erase_if(m_threads, [&](const auto& known) { return known.get() == &thread; });
    if (m_options.free) {
        --m_awake;
        while (m_awake == 0) Advance();
        m_machine.m_mutex.unlock();
    } else {
        SwitchTo(Choose());
    }
}

Thread* Scheduler::FindThread(DWORD id) const
{
    const auto found = std::ranges::find(m_threads, id, [](const auto& t) { return t->id; });
    return found != m_threads.end() ? found->get() : nullptr;
}

void Scheduler::JoinHostThreads(bool all)
{
    std::erase_if(m_host_threads, [&](HostThread& host) {
        if (!all && !host.done) return false;
        host.thread.join();
        return true;
    });
}

// --- Reports ---

bool Scheduler::InLockCircle(const Thread& thread) const
{
    const Thread* at = &thread;
    for (std::size_t steps = 0; steps <= m_threads.size(); ++steps) {
        if (!at || at->state != Thread::State::blocked || !at->wait.lock) return false;
        at = FindThread(
            static_cast<DWORD>(reinterpret_cast<std::uintptr_t>(at->wait.lock->OwningThread)));
        if (at == &thread) return true;
    }
    return false;
}

std::string Scheduler::Report() const
{
    std::string report;
    for (const auto& thread : m_threads) {
        char line[200];
        const char* what = thread->state == Thread::State::blocked ? thread->wait.what : "can run";
        std::snprintf(line, sizeof(line), "  thread 0x%X: %s", thread->id, what);
        report += line;
        if (thread->wait.lock && thread->state == Thread::State::blocked) {
            std::snprintf(line, sizeof(line), " that thread 0x%X has",
                          static_cast<unsigned>(
                              reinterpret_cast<std::uintptr_t>(thread->wait.lock->OwningThread)));
            report += line;
        }
        report += "\n";
    }
    return report;
}

}  // namespace virtual_pc
