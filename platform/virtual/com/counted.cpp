#include "platform/virtual/com/counted.h"

#include "platform/virtual/com/com.h"

namespace virtual_pc {
namespace {

Function fn_add_ref{"IUnknown::AddRef", Failing::never, Role::releases};
Function fn_release{"IUnknown::Release", Failing::never, Role::releases};

}  // namespace

ULONG Counted::AddRef()
{
    const Call call(fn_add_ref);
    CheckUsable(call);
    return ++m_count;
}

ULONG Counted::Release()
{
    const Call call(fn_release);
    if (!CheckUsable(call)) return 0;
    if (--m_count == 0) {
        call.machine.com.KeepReleased(call.machine.handles.FindShared(m_handle));
        call.machine.handles.Close(m_handle);
    }
    return m_count;
}

bool Counted::CheckUsable(const Call& call) const
{
    if (m_count > 0) return true;
    call.machine.NoteMisuse(std::string(Kind()) +
                            " is used after its last reference was given back");
    return false;
}

}  // namespace virtual_pc
