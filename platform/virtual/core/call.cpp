#include "platform/virtual/core/call.h"

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "platform/virtual/core/process.h"

namespace virtual_pc {
namespace {

Thread& SelfOrDie(const Function& function)
{
    Thread* self = Thread::Self();
    if (!self) {
        std::fprintf(stderr, "%s called on a host thread that is no thread of the machine\n",
                     function.name());
        std::abort();
    }
    return *self;
}

}  // namespace

Call::Call(Function& function)
    : Boundary(&SelfOrDie(function)),
      machine(Machine::Current()),
      thread(*m_thread),
      m_function(function),
      m_hold(machine)
{
    machine.scheduler.Preempt(thread);
    if (thread.process) thread.process->CountCall();
    EndWithProcess();
    if (m_void) return;
    if (machine.slowness.any()) TakeTime();
    machine.LookAtWatch();
    Take(machine.faults.OnCall(function, thread, machine.now()));
}

void Call::EndWithProcess()
{
    if (EndIfKilled(thread) || (thread.process && thread.process->killed())) {
        m_void = true;
        m_error = m_function.DefaultError();
        return;
    }
    // Destructors call releasing functions while a thread unwinds, so these go on. With any other
    // call the thread is gone, as on a real PC; a destructor may be calling, so it is no exception
    // that ends it.
    if (thread.ends && m_function.role() != Role::releases && std::uncaught_exceptions() == 0) {
        thread.vanishes = true;
        if (thread.process) thread.process->lost_thread = true;
        m_void = true;
        m_error = m_function.DefaultError();
    }
}

// A thread that unwinds takes no time: it may not end by an exception from a wait then.
void Call::TakeTime()
{
    if (!thread.process || thread.ends || std::uncaught_exceptions() > 0 || !Hold::Once()) return;
    const Duration time = machine.slowness.Draw(m_function, thread);
    if (time > Duration{0}) {
        Waitable::WaitFor(machine, thread, {}, false, machine.now() + time);
    }
}

bool Call::Take(const std::optional<Faults::Struck>& struck)
{
    if (!struck) return false;
    m_error = struck->error;
    m_lie = struck->lie;
    return true;
}

bool Call::FailsFor(std::wstring_view object)
{
    if (m_void || !m_function.faulty()) return false;
    return Take(machine.faults.OnObject(m_function, object, thread, machine.now())) && Fails();
}

bool Call::Denies()
{
    if (m_lie != Lie::denies) return false;
    if (m_function.failing() == Failing::last_error) thread.last_error = *m_error;
    return true;
}

bool Call::Fails()
{
    if (!m_error || m_lie != Lie::none) return false;
    if (m_function.failing() == Failing::last_error) thread.last_error = *m_error;
    return true;
}

Process& Call::process()
{
    if (!thread.process) {
        std::fprintf(stderr, "%s called by the machine's driver, which is no process\n",
                     m_function.name());
        std::abort();
    }
    return *thread.process;
}

BOOL Call::Fail(DWORD error)
{
    thread.last_error = error;
    return FALSE;
}

HANDLE Call::Open(std::shared_ptr<Object> object)
{
    return machine.handles.Open(std::move(object), thread.process);
}

void Call::BadHandle(HANDLE handle)
{
    thread.last_error = ERROR_INVALID_HANDLE;
    if (machine.handles.IsStale(handle)) {
        machine.NoteMisuse(std::string(m_function.name()) + " with a handle that is closed");
    }
}

}  // namespace virtual_pc
