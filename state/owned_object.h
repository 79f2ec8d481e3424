// Holds an object that the state machine creates and drops while other threads use it.
#pragma once

#include <memory>
#include <utility>

#include "platform/lock.h"

// Get returns a reference, so that a thread can go on using the object after the state machine has
// dropped it. The lock is held only while the reference is copied.
template <class T>
class OwnedObject
{
public:
    // A reference to the object; empty when there is none. Any thread.
    std::shared_ptr<T> Get() const
    {
        const ScopedLock lock(m_lock);
        return m_object;
    }

    // Replaces the object. The old one is destroyed when its last reference is released.
    void Set(std::shared_ptr<T> object)
    {
        const ScopedLock lock(m_lock);
        m_object.swap(object);
    }

private:
    mutable CriticalSection m_lock;
    std::shared_ptr<T> m_object;
};
