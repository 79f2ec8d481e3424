// The description of one type of a type library, as programs get it.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "platform/virtual/typelib/type_library.h"

namespace virtual_pc {

class Call;

// A type of a library, by its place there.
struct TypeInLibrary
{
    std::shared_ptr<const TypeLibrary> library;
    std::size_t index = 0;

    const TypeDescription& description() const { return library->types[index]; }
};

// Hands out the type's information to the calling process.
ITypeInfo* HandOutTypeInfo(Machine& machine, TypeInLibrary type);
// The type that an object from HandOutTypeInfo describes.
TypeInLibrary TypeOf(ITypeInfo* info);

// The DISPIDs of a member (the first name) and of its parameters (the other names), in any letter
// case.
HRESULT FindNames(const TypeDescription& type, LPOLESTR* names, UINT count, DISPID* ids);

// Calls a member of `instance` through its slot, with the arguments converted to the types of its
// parameters. Without the machine held.
HRESULT InvokeSlot(const TypeDescription& type, void* instance, DISPID member, WORD flags,
                   DISPPARAMS* arguments, VARIANT* result, EXCEPINFO* exception, UINT* badArgument);

// Calls slot number `slot` of an interface with up to four words.
HRESULT CallSlot(void* instance, int slot, const std::uintptr_t (&words)[4]);

}  // namespace virtual_pc
