#include "platform/virtual/core/machine.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "platform/virtual/base/one_core.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/core/thread.h"

namespace virtual_pc {
namespace {

Machine* g_machine = nullptr;
thread_local int t_holds = 0;

}  // namespace

void Hold::Enter(const Machine& machine)
{
    if (t_holds++ == 0) machine.m_mutex.lock();
}

Hold::~Hold()
{
    if (--t_holds == 0) m_machine.m_mutex.unlock();
}

void Hold::Release()
{
    if (std::exchange(t_holds, 0) > 0) g_machine->m_mutex.unlock();
}

bool Hold::Once() { return t_holds == 1; }

void Hold::Require()
{
    if (t_holds > 0) return;
    std::fputs("called without the machine held, which the function's comment asks for\n", stderr);
    std::abort();
}

void Machine::SwitchOn(bool free)
{
    if (g_machine) throw std::logic_error("there is a virtual PC already");
    if (!free) m_one_core = std::make_unique<OneCore>();
    g_machine = this;
    m_driver->state = Thread::State::running;
    Thread::SetSelf(m_driver.get());
    scheduler.SetDriver(*m_driver);
}

void Machine::SwitchOff()
{
    Thread::SetSelf(nullptr);
    g_machine = nullptr;
}

Machine& Machine::Current() { return *g_machine; }
bool Machine::Exists() { return g_machine != nullptr; }

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

std::vector<std::string> Machine::misuses() const
{
    const Hold hold(*this);
    return m_misuses;
}

void Machine::NoteMisuse(std::string what)
{
    const Hold hold(*this);
    // A killed process is past mistakes.
    const Thread* self = Thread::Self();
    if (self && self->process && self->process->killed()) return;
    m_misuses.push_back(std::move(what));
}

void Machine::Watch(const std::atomic<std::int32_t>* address,
                    std::function<void(std::int32_t, std::int32_t)> changed, const Process* process)
{
    const Hold hold(*this);
    m_watched = address;
    m_watched_process = process;
    m_watched_value = address ? address->load() : 0;
    m_watch_changed = std::move(changed);
}

void Machine::EndWatchOf(const Process& process)
{
    if (!m_watched_process || m_watched_process == &process) Watch(nullptr, {});
}

void Machine::LookAtWatch()
{
    if (!m_watched) return;
    const std::int32_t value = m_watched->load();
    if (value == m_watched_value) return;
    m_watch_changed(std::exchange(m_watched_value, value), value);
}

}  // namespace virtual_pc
