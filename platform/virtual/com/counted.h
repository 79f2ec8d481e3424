// The base of the COM objects that the machine itself implements.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "platform/com.h"
#include "platform/virtual/base/fixed_memory.h"
#include "platform/virtual/com/com.h"
#include "platform/virtual/core/call.h"

namespace virtual_pc {

// A COM object that counts as an open handle until its last reference is released. A derived class
// implements an interface too, and forwards the interface's AddRef and Release to these.
class Counted : public Object
{
public:
    // Both return the new count.
    ULONG AddRef();
    ULONG Release();
    // Adds a reference for a function that hands the object out once more. With the machine held.
    void Share() { ++m_count; }

protected:
    // False, and noted as misuse, when the last reference has been released.
    bool CheckUsable(const Call& call) const;

    template <class Interface>
    HRESULT Answer(REFIID id, const IID& own, Interface* self, void** object)
    {
        *object = nullptr;
        if (id != own && id != IID_IUnknown) return E_NOINTERFACE;
        AddRef();
        *object = self;
        return S_OK;
    }

private:
    template <class T, class... Arguments>
    friend T* HandOut(Machine& machine, Arguments&&... arguments);

    HANDLE m_handle = nullptr;
    ULONG m_count = 1;
};

// A new object, whose first reference is the caller's. With the machine held.
template <class T, class... Arguments>
T* HandOut(Machine& machine, Arguments&&... arguments)
{
    auto object = std::allocate_shared<T>(FixedAllocator<T>(machine.com.memory),
                                          std::forward<Arguments>(arguments)...);
    T* handed = object.get();
    handed->m_handle = machine.handles.Open(std::move(object), Thread::Self()->process);
    return handed;
}

// The Call of a method of a COM object.
class Operation : public Call
{
public:
    explicit Operation(Function& function) : Call(function) {}

    // S_OK, or what the method must return at once: the code of a fault, or E_UNEXPECTED for an
    // object that is not usable.
    HRESULT Refused(bool usable)
    {
        if (Fails()) return static_cast<HRESULT>(error());
        return usable ? S_OK : E_UNEXPECTED;
    }
};

}  // namespace virtual_pc
