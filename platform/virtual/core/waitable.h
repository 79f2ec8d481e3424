// What can be waited for, and how a wait is satisfied.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/base.h"
#include "platform/virtual/core/handles.h"
#include "platform/virtual/core/scheduler.h"

namespace virtual_pc {

class Machine;
class Thread;
class Waitable;

// What a blocked thread waits for. It belongs to the thread, and is valid while the thread blocks.
struct Wait
{
    std::vector<std::shared_ptr<Waitable>> objects;
    bool all = false;
    DWORD result = 0;
    // In words, for the report of a stuck machine; a literal.
    const char* what = "";
    // The lock it waits for, when it waits for one.
    const CRITICAL_SECTION* lock = nullptr;
    // Whether a message ends it.
    bool for_message = false;
    // The remote call whose answer it waits for, or null; an incoming call ends such a wait too.
    const void* answer = nullptr;
};

// An object with a signal. All calls are made with the machine held.
class Waitable : public Object, public std::enable_shared_from_this<Waitable>
{
public:
    enum class Reset
    {
        manual,
        automatic,
    };

    explicit Waitable(Reset reset = Reset::manual) : m_reset(reset) {}

    Waitable* AsWaitable() override { return this; }

    bool signalled() const { return m_signalled; }

    // Sets the signal and wakes the threads whose waits it satisfies: all of them for manual reset,
    // the one that has waited longest for automatic reset.
    void Signal();
    void Unsignal() { m_signalled = false; }

    // Resets an automatic object, for a wait that it has satisfied.
    void Take()
    {
        if (m_reset == Reset::automatic) m_signalled = false;
    }

    // Waits for objects, with the machine held once. Returns WAIT_OBJECT_0 + index or WAIT_TIMEOUT.
    static DWORD WaitFor(Machine& machine, Thread& self,
                         std::vector<std::shared_ptr<Waitable>> objects, bool all,
                         Instant deadline);

private:
    bool TrySatisfy(Thread& thread);
    static void Forget(Thread& thread);

    Reset m_reset;
    bool m_signalled = false;
    std::vector<Thread*> m_waiters;
};

}  // namespace virtual_pc
