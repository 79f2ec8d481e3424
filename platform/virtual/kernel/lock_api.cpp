// Critical sections and one-time initialisation.

#include <algorithm>
#include <map>

#include "platform/kernel.h"
#include "platform/virtual/core/call.h"

using namespace virtual_pc;

namespace {

// The threads that wait for each lock, longest first. With the machine held. Kept here, because the
// platform fixes the layout of the lock.
std::map<const CRITICAL_SECTION*, std::vector<Thread*>>& LockWaiters()
{
    static std::map<const CRITICAL_SECTION*, std::vector<Thread*>> waiters;
    return waiters;
}

// Counts a thread among those that wait for a lock, for as long as it exists.
class LockWait
{
public:
    LockWait(const CRITICAL_SECTION* section, Thread& thread) : m_section(section), m_thread(thread)
    {
        LockWaiters()[section].push_back(&thread);
        thread.wait = {};
        thread.wait.what = "for a lock";
        thread.wait.lock = section;
    }
    ~LockWait()
    {
        m_thread.wait.lock = nullptr;
        const auto waiters = LockWaiters().find(m_section);
        if (waiters == LockWaiters().end()) return;
        std::erase(waiters->second, &m_thread);
        if (waiters->second.empty()) LockWaiters().erase(waiters);
    }
    LockWait(const LockWait&) = delete;
    LockWait& operator=(const LockWait&) = delete;

private:
    const CRITICAL_SECTION* m_section;
    Thread& m_thread;
};

HANDLE OwnerOf(const Thread& thread)
{
    return reinterpret_cast<HANDLE>(static_cast<std::uintptr_t>(thread.id));
}

// An initialisation under way; other threads wait for it.
class Once final : public Waitable
{
public:
    std::string_view Kind() const override { return "one-time initialisation"; }
};

std::map<INIT_ONCE*, std::shared_ptr<Once>>& Onces()
{
    static std::map<INIT_ONCE*, std::shared_ptr<Once>> onces;
    return onces;
}

const PVOID kDone = reinterpret_cast<PVOID>(std::uintptr_t{2});

Function fn_initialize_critical_section{"InitializeCriticalSectionAndSpinCount"};
Function fn_enter_critical_section{"EnterCriticalSection", Failing::never};
Function fn_leave_critical_section{"LeaveCriticalSection", Failing::never, Role::releases};
Function fn_init_once{"InitOnceExecuteOnce"};

}  // namespace

extern "C" {

// Without a Call: static objects create and delete their locks while an image is loaded or
// unloaded, or when there is no machine.
void WINAPI InitializeCriticalSection(CRITICAL_SECTION* section) { *section = {}; }

BOOL WINAPI InitializeCriticalSectionAndSpinCount(CRITICAL_SECTION* section, DWORD)
{
    Call call(fn_initialize_critical_section);
    *section = {};
    return !call.Fails();
}

void WINAPI DeleteCriticalSection(CRITICAL_SECTION* section)
{
    const auto may_be_held = [](const Thread& self) {
        return self.ends || (self.process && self.process->lost_thread);
    };
    if (section->OwningThread && Machine::Exists() && !may_be_held(*Thread::Self())) {
        Machine::Current().NoteMisuse("a critical section is deleted while a thread has it");
    }
    *section = {};
}

void WINAPI EnterCriticalSection(CRITICAL_SECTION* section)
{
    Call call(fn_enter_critical_section);
    if (call.Void()) return;
    const HANDLE self = OwnerOf(call.thread);
    if (section->RecursionCount > 0 && section->OwningThread == self) {
        ++section->RecursionCount;
        return;
    }
    // A released lock goes to the first thread that tries to take it, as on Windows: a waiter is
    // woken only to try again.
    while (section->RecursionCount > 0) {
        const LockWait waiting(section, call.thread);
        call.machine.scheduler.Block(call.thread);
        // The thread unwinds without the lock; LeaveCriticalSection does not count that as misuse.
        if (call.thread.ends) return;
    }
    section->OwningThread = self;
    section->RecursionCount = 1;
}

void WINAPI LeaveCriticalSection(CRITICAL_SECTION* section)
{
    Call call(fn_leave_critical_section);
    if (call.Void()) return;
    if (section->RecursionCount == 0 || section->OwningThread != OwnerOf(call.thread)) {
        if (call.thread.ends) return;
        call.machine.NoteMisuse("a critical section is left by a thread that does not have it");
        return;
    }
    if (--section->RecursionCount > 0) return;
    section->OwningThread = nullptr;
    const auto waiters = LockWaiters().find(section);
    if (waiters != LockWaiters().end()) {
        call.machine.scheduler.MakeReady(*waiters->second.front());
    }
}

BOOL WINAPI InitOnceExecuteOnce(PINIT_ONCE once, PINIT_ONCE_FN function, PVOID parameter,
                                PVOID* context)
{
    const Boundary boundary;
    Machine& machine = Machine::Current();
    std::shared_ptr<Once> mine;
    {
        Call call(fn_init_once);
        if (call.Fails()) return FALSE;
        while (once->Ptr != kDone) {
            std::shared_ptr<Once>& running = Onces()[once];
            if (!running) {
                mine = running = std::make_shared<Once>();
                break;
            }
            Waitable::WaitFor(machine, call.thread, {running}, false, kNever);
            if (call.thread.ends) return FALSE;
        }
        if (!mine) return TRUE;
    }
    const auto finish = [&](bool done) {
        const Hold hold(machine);
        once->Ptr = done ? kDone : nullptr;
        Onces().erase(once);
        mine->Signal();
    };
    BOOL done = FALSE;
    try {
        EnterProcess([&] { done = function(once, parameter, context); });
    } catch (...) {
        finish(false);
        throw;
    }
    finish(done);
    return done;
}
}
