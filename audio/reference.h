// References to Core Audio's objects, whose release is logged.
#pragma once

#include "log/log.h"
#include "platform/owned.h"

// Releases a reference and logs it under the operation's name. Returns the remaining count; for an
// empty reference 0, without a log line.
template <class Interface>
ULONG SafeRelease(OwnedInterface<Interface>& reference, const wchar_t* function)
{
    Interface* const object = reference.Get();
    if (!object) return 0;
    Log(6, function, L"SAFE_RELEASE of %p", object);
    const ULONG left = reference.Detach()->Release();
    Log(6, function, L"Release of %p returned %d", object, left);
    return left;
}

// The out parameter of an operation that returns an interface as void*.
template <class Interface>
void** ReceiveAny(OwnedInterface<Interface>& reference)
{
    return reinterpret_cast<void**>(reference.Receive());
}
