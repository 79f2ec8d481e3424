// Faults of the processor, such as the read of a bad pointer, as C++ exceptions.
#pragma once

#include <exception>
#include <memory>

// What a fault becomes.
class Fault : public std::exception
{
public:
    const char* what() const noexcept override { return "a fault of the processor"; }
};

#ifdef _WIN32
// Calls `body` with `argument`. platform/fault.cpp says how and within which limits.
extern "C" void CallWithFaultsThrown(void (*body)(void*), void* argument);
#endif

// Runs `body`. On Windows a fault in it, or in what it calls, throws a Fault where it happened, so
// that locks and handles are released on the way to the handler. The code that is to release them
// must be compiled with -fnon-call-exceptions and -fno-builtin. The virtual PC raises C++
// exceptions by itself.
template <class Body>
void ThrowFaultsOf(Body&& body)
{
#ifdef _WIN32
    CallWithFaultsThrown([](void* argument) { (*static_cast<Body*>(argument))(); },
                         static_cast<void*>(std::addressof(body)));
#else
    body();
#endif
}
