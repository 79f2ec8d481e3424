// Memory that the platform allocates and the service frees by pointer. It counts as an open handle:
// memory that is not freed when its process ends is listed as left open.
#pragma once

#include <cstddef>

#include "platform/virtual/core/call.h"

namespace virtual_pc {

// Zeroed memory that belongs to the calling process; `kind` is a literal that names it in reports.
void* Allocate(Call& call, std::size_t size, std::string_view kind);

// Frees memory from Allocate, or null. False, and noted as misuse, for anything else.
bool Free(Call& call, void* memory);

}  // namespace virtual_pc
