// Names on the PC, of keys, files, devices and programs, whose letter case does not matter.
#pragma once

#include <algorithm>
#include <cwctype>
#include <string>
#include <string_view>

namespace virtual_pc {

// Nearly every letter of a name on the PC is ASCII, for which the host's tables are not asked.
inline std::wint_t UpperCase(wchar_t c)
{
    if (c >= L'a' && c <= L'z') return static_cast<std::wint_t>(c - L'a' + L'A');
    return c < 0x80 ? static_cast<std::wint_t>(c) : std::towupper(static_cast<std::wint_t>(c));
}

inline bool SameName(std::wstring_view a, std::wstring_view b)
{
    return a.size() == b.size() && std::ranges::equal(a, b, [](wchar_t x, wchar_t y) {
               return UpperCase(x) == UpperCase(y);
           });
}

// Orders names for maps.
struct NoCase
{
    using is_transparent = void;
    bool operator()(std::wstring_view a, std::wstring_view b) const
    {
        return std::ranges::lexicographical_compare(
            a, b, [](wchar_t x, wchar_t y) { return UpperCase(x) < UpperCase(y); });
    }
};

}  // namespace virtual_pc
