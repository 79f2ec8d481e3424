// References to Core Audio's objects, whose giving back the log tells of.
#pragma once

#include "log/log.h"
#include "platform/owned.h"

// Gives a reference back, and says so under the name of the operation; returns the count that is
// left. An empty one is left alone, with no line, and counts 0.
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

// The place for an operation that returns an interface without naming its type.
template <class Interface>
void** ReceiveAny(OwnedInterface<Interface>& reference)
{
    return reinterpret_cast<void**>(reference.Receive());
}
