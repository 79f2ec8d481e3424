// The service's only kind of lock. It uses the platform's critical sections instead of the standard
// library: the virtual PC lets one thread run at a time and must know which thread waits for which,
// so a thread that blocks without its knowledge would stop the machine.
//
// No lock is held across a wait, a sleep or a call that may call back.
#pragma once

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
