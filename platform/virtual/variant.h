// Values of automation: what they hold, and how one type becomes another. Without the machine held,
// as a value may hold an object.
#pragma once

#include <optional>
#include <string>

#include "platform/automation.h"

namespace virtual_pc {

// How many bytes a value of a type has in its place; 0 for a type that is none of ours.
std::size_t SizeOf(VARTYPE type);

// What a value by reference stands for, as a value of the same type that owns nothing; a value that
// is no reference is itself.
VARIANT Dereferenced(const VARIANT& value);

// `source` as a value of another type, which holds a string or a reference of its own.
// DISP_E_TYPEMISMATCH, DISP_E_OVERFLOW or DISP_E_BADVARTYPE, and an empty value, when it has none.
HRESULT Convert(VARIANT& destination, const VARIANT& source, VARTYPE type);

}  // namespace virtual_pc
