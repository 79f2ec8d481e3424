// The processor's identification.
#pragma once

#ifdef _WIN32

#include <intrin.h>

#else

extern "C" {

// Runs the processor's identification instruction for `function` and returns EAX, EBX, ECX and EDX.
// Function 0: EBX, EDX and ECX, in this order, hold the vendor's twelve characters.
void __cpuid(int registers[4], int function);
}

#endif
