// VARIANTs: the sizes of their types, and conversions. Without the machine held, as a conversion
// may call an object.
#pragma once

#include <optional>
#include <string>

#include "platform/automation.h"

namespace virtual_pc {

// The size of a value of a type in bytes; 0 for a type that is not supported.
std::size_t SizeOf(VARTYPE type);

// What a VT_BYREF value points to, as a value that owns nothing; any other value unchanged.
VARIANT Dereferenced(const VARIANT& value);

// Converts `source` to another type; the result owns its string or reference. When that is
// impossible, returns DISP_E_TYPEMISMATCH, DISP_E_OVERFLOW or the failure of a call, and an empty
// value.
HRESULT Convert(VARIANT& destination, const VARIANT& source, VARTYPE type);

}  // namespace virtual_pc
