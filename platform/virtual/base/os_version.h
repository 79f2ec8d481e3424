// Versions of Windows, as GetVersion packs them: major in the low byte, minor in the next, and the
// build in the high half.
#pragma once

#include <optional>
#include <string_view>

#include "platform/base.h"

namespace virtual_pc {

constexpr DWORD OsVersion(DWORD major, DWORD minor, DWORD build = 0)
{
    return major | minor << 8 | build << 16;
}

inline constexpr DWORD kWindows7 = OsVersion(6, 1, 7601);
inline constexpr DWORD kWindows8 = OsVersion(6, 2, 9200);
inline constexpr DWORD kWindows81 = OsVersion(6, 3, 9600);
inline constexpr DWORD kWindows10 = OsVersion(10, 0, 19045);
inline constexpr DWORD kWindows11 = OsVersion(10, 0, 22631);

// Whether a version is `other` or a later one; builds do not count.
constexpr bool OsAtLeast(DWORD version, DWORD other)
{
    const auto order = [](DWORD v) { return (v & 0xFF) << 8 | (v >> 8 & 0xFF); };
    return order(version) >= order(other);
}

// A name ("7", "8.1", "11") or a number ("6.1", "10.0", "10.0.22631"); nothing for any other text.
std::optional<DWORD> ParseOsVersion(std::string_view text);

}  // namespace virtual_pc
