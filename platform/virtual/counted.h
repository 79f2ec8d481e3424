// What stands behind the component objects that the machine itself hands out.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "platform/com.h"
#include "platform/virtual/call.h"
#include "platform/virtual/fixed_memory.h"

namespace virtual_pc {

// An object that counts as handed out until its last reference is given back. A class derived from
// it and from its interface lets AddRef and Release call these.
class Counted : public Object
{
public:
    // Both return the new count.
    ULONG AddRef();
    ULONG Release();

protected:
    // Whether the object may be used still; noted as misuse when not.
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

// The beginning of an operation: the call, and why it is not to go on.
class Operation : public Call
{
public:
    explicit Operation(Function& function) : Call(function) {}

    // S_OK, or what the operation returns at once.
    HRESULT Refused(bool usable)
    {
        if (Fails()) return static_cast<HRESULT>(error());
        return usable ? S_OK : E_UNEXPECTED;
    }
};

}  // namespace virtual_pc
