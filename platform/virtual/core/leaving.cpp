#include "platform/virtual/core/leaving.h"

#include <cxxabi.h>

#include <atomic>
#include <csetjmp>
#include <utility>

#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/thread.h"

namespace virtual_pc {

// What the C++ runtime keeps of the exceptions of a thread: those that are being handled, and how
// many are in flight. A thread that jumps out of handlers and unwinding leaves them behind.
struct UnwindState
{
    void* handled;
    unsigned int in_flight;
};

namespace {

UnwindState& StateOfUnwinding()
{
    return *reinterpret_cast<UnwindState*>(abi::__cxa_get_globals());
}

std::atomic<bool> g_abandoned = false;

}  // namespace

// Where a thread's process was entered.
class ProcessEntry
{
public:
    explicit ProcessEntry(Thread& thread)
        : m_thread(thread),
          m_outer(thread.entry),
          m_boundaries(thread.boundaries),
          m_unwind_state(StateOfUnwinding())
    {
        thread.entry = this;
        thread.boundaries = 0;
    }
    ~ProcessEntry()
    {
        m_thread.entry = m_outer;
        m_thread.boundaries = m_boundaries;
    }
    ProcessEntry(const ProcessEntry&) = delete;
    ProcessEntry& operator=(const ProcessEntry&) = delete;

    [[noreturn]] void Return()
    {
        g_abandoned = true;
        StateOfUnwinding() = m_unwind_state;
        std::longjmp(place, 1);
    }

    std::jmp_buf place;

private:
    Thread& m_thread;
    ProcessEntry* const m_outer;
    const int m_boundaries;
    const UnwindState m_unwind_state;
};

bool FramesWereAbandoned() { return g_abandoned; }

bool EndIfKilled(Thread& self)
{
    if (!self.vanishes) return false;
    if (self.keeps_on || std::exchange(self.leaving, true)) return true;
    throw ThreadEnds{};
}

void EnterProcess(const std::function<void()>& code)
{
    Thread* self = Thread::Self();
    if (!self || !self->process) return code();
    EndIfKilled(*self);
    ProcessEntry entry(*self);
    if (setjmp(entry.place) == 0) return code();
    throw ThreadEnds{};
}

Boundary::Boundary() : Boundary(Thread::Self()) {}

Boundary::Boundary(Thread* self) : m_thread(self)
{
    if (m_thread) ++m_thread->boundaries;
}

Boundary::~Boundary()
{
    if (!m_thread || --m_thread->boundaries > 0 || !m_thread->vanishes) return;
    if (!m_thread->entry) return;
    Hold::Release();
    m_thread->entry->Return();
}

}  // namespace virtual_pc
