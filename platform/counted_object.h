// The base class of the component objects that the service implements.
#pragma once

#include <atomic>

#include "platform/com.h"

// Implements IUnknown for an object with one interface. The object starts with one reference, its
// creator's. Releasing the last one deletes the object, which must then have been created with new.
// Any thread.
template <class Interface, const IID& id, class Object>
class CountedObject : public Interface
{
public:
    CountedObject() = default;
    CountedObject(const CountedObject&) = delete;
    CountedObject& operator=(const CountedObject&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID wanted, void** object) override
    {
        if (!object) return E_POINTER;
        *object = nullptr;
        if (!IsEqualIID(wanted, IID_IUnknown) && !IsEqualIID(wanted, id)) return E_NOINTERFACE;
        AddRef();
        *object = static_cast<Interface*>(this);
        return S_OK;
    }

    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }

    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG left = --m_references;
        if (left == 0) delete static_cast<Object*>(this);
        return left;
    }

protected:
    ~CountedObject() = default;

private:
    std::atomic<ULONG> m_references = 1;
};
