// The base of the component objects that the service makes.
#pragma once

#include <atomic>

#include "platform/com.h"

// Answers for IUnknown and for its one interface, and counts its references. The first reference is
// the maker's; whoever gives the last one back destroys the object, which must then have been made
// with new. Any thread.
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
