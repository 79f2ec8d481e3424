// The service's one kind of lock. It is the platform's own, never the standard library's: on the
// virtual PC the kernel must see who waits for whom, and one thread runs at a time, so a thread
// blocked behind the kernel's back would stop the machine.
//
// No lock is held across a wait, a sleep or a call that can call back.
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
