// What the processor says of itself.
#pragma once

#ifdef _WIN32

#include <intrin.h>

#else

extern "C" {

// The answer of the processor's identification instruction to `function`, its registers EAX, EBX,
// ECX and EDX. Function 0: the vendor's twelve characters are in EBX, EDX and ECX, in this order.
void __cpuid(int registers[4], int function);
}

#endif
