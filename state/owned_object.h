// The holder of an object that the state machine makes and deletes while other threads use it.
#pragma once

#include <memory>
#include <utility>

#include "platform/lock.h"

// Whoever takes the object keeps it alive until done with it, so that the state machine's end never
// deletes it under a handler's thread. The lock covers the taking only.
template <class T>
class OwnedObject
{
public:
    // The object, empty when there is none. Any thread.
    std::shared_ptr<T> Get() const
    {
        const ScopedLock lock(m_lock);
        return m_object;
    }

    // Replaces the object; the old one is deleted when its last user is done with it.
    void Set(std::shared_ptr<T> object)
    {
        const ScopedLock lock(m_lock);
        m_object.swap(object);
    }

private:
    mutable CriticalSection m_lock;
    std::shared_ptr<T> m_object;
};
