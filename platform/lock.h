// The service's only kind of lock. It uses the platform's critical sections instead of the standard
// library: the virtual PC lets one thread run at a time and must know which thread waits for which,
// so a thread that blocks without its knowledge would stop the machine.
//
// No lock is held across a wait, a sleep or a call that may call back.
#pragma once

#include <atomic>

#include "platform/kernel.h"

class CriticalSection
{
public:
    CriticalSection() { InitializeCriticalSection(&m_section); }
    ~CriticalSection() { DeleteCriticalSection(&m_section); }
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    void Enter() { EnterCriticalSection(&m_section); }
    void Leave() { LeaveCriticalSection(&m_section); }

private:
    CRITICAL_SECTION m_section;
};

class ScopedLock
{
public:
    explicit ScopedLock(CriticalSection& section) : m_section(section) { m_section.Enter(); }
    ~ScopedLock() { m_section.Leave(); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

private:
    CriticalSection& m_section;
};

// A value that seldom changes and is often looked at. A caller that keeps a Copy takes the lock
// only after a change.
template <typename T>
class Guarded
{
public:
    struct Copy
    {
        T value{};
        unsigned changes = 0;
    };

    // `change` returns whether it has changed the value.
    template <typename Function>
    void Change(Function change)
    {
        const ScopedLock lock(m_lock);
        if (change(m_value)) ++m_changes;
    }

    // Makes the copy anew if the value has changed since it was made.
    void Refresh(Copy& copy) const
    {
        if (copy.changes == m_changes) return;
        const ScopedLock lock(m_lock);
        copy = {m_value, m_changes};
    }

private:
    mutable CriticalSection m_lock;
    T m_value{};
    std::atomic<unsigned> m_changes = 0;
};
