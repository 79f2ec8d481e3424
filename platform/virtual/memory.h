// Memory that the platform hands out and the service gives back by pointer. It is counted like a
// handle: what is not freed when its process ends is found among what was left open.
#pragma once

#include <cstddef>

#include "platform/virtual/call.h"

namespace virtual_pc {

// Zeroed memory that belongs to the calling process; `kind` is a literal that names it in reports.
void* Allocate(Call& call, std::size_t size, std::string_view kind);

// Frees what Allocate gave, null included; false, and a note of the misuse, for anything else.
bool Free(Call& call, void* memory);

}  // namespace virtual_pc
