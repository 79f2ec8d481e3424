#include "platform/virtual/core/waitable.h"

#include <algorithm>

#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/thread.h"

namespace virtual_pc {
namespace {

// Ends a wait whose time has run out.
class Timeout final : public Alarm
{
public:
    explicit Timeout(Thread& thread) : m_thread(thread) {}
    bool CountsSleep() const override { return !Machine::Current().AtLeast(kWindows8); }

protected:
    void Due() override
    {
        m_thread.wait.result = WAIT_TIMEOUT;
        Machine::Current().scheduler.MakeReady(m_thread);
    }

private:
    Thread& m_thread;
};

}  // namespace

// Ends the wait of a thread if this signalled object satisfies it, and takes the signals of what it
// waited for.
bool Waitable::TrySatisfy(Thread& thread)
{
    auto& objects = thread.wait.objects;
    if (thread.wait.all) {
        if (!std::ranges::all_of(objects, [](const auto& o) { return o->m_signalled; })) {
            return false;
        }
        for (const auto& object : objects) object->Take();
        thread.wait.result = WAIT_OBJECT_0;
        return true;
    }
    const auto found =
        std::ranges::find(objects, this, [](const auto& object) { return object.get(); });
    thread.wait.result = WAIT_OBJECT_0 + static_cast<DWORD>(found - objects.begin());
    Take();
    return true;
}

void Waitable::Signal()
{
    Hold::Require();
    m_signalled = true;
    Scheduler& scheduler = Machine::Current().scheduler;
    for (std::size_t i = 0; i < m_waiters.size() && m_signalled;) {
        Thread& thread = *m_waiters[i];
        if (!TrySatisfy(thread)) {
            ++i;
            continue;
        }
        Forget(thread);
        scheduler.MakeReady(thread);
    }
}

void Waitable::Forget(Thread& thread)
{
    for (const auto& object : thread.wait.objects) std::erase(object->m_waiters, &thread);
}

DWORD Waitable::WaitFor(Machine& machine, Thread& self,
                        std::vector<std::shared_ptr<Waitable>> objects, bool all, Instant deadline)
{
    Hold::Require();
    self.wait = {};
    self.wait.objects = std::move(objects);
    self.wait.all = all;
    self.wait.what = "for an object to be signalled";

    for (const auto& object : self.wait.objects) {
        if (object->m_signalled && object->TrySatisfy(self)) {
            self.wait.objects.clear();
            return self.wait.result;
        }
    }
    self.wait.result = WAIT_TIMEOUT;
    if (deadline <= machine.now()) {
        self.wait.objects.clear();
        return WAIT_TIMEOUT;
    }

    Timeout timeout(self);
    if (deadline != kNever) machine.scheduler.Set(timeout, deadline);
    for (const auto& object : self.wait.objects) object->m_waiters.push_back(&self);
    const auto leave = [&] {
        machine.scheduler.Cancel(timeout);
        Forget(self);
        self.wait.objects.clear();
    };
    try {
        machine.scheduler.Block(self);
    } catch (...) {
        leave();
        throw;
    }
    leave();
    return self.wait.result;
}

}  // namespace virtual_pc
