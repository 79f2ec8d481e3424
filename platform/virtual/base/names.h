// Names on the PC, of keys, files, devices and programs, whose letter case does not matter.
#pragma once

#include <algorithm>
#include <cwctype>
#include <string>
#include <string_view>

namespace virtual_pc {

inline bool SameName(std::wstring_view a, std::wstring_view b)
{
    return std::ranges::equal(
        a, b, [](wchar_t x, wchar_t y) { return std::towupper(x) == std::towupper(y); });
}

// Orders names for maps.
struct NoCase
{
    bool operator()(const std::wstring& a, const std::wstring& b) const
    {
        return std::ranges::lexicographical_compare(
            a, b, [](wchar_t x, wchar_t y) { return std::towupper(x) < std::towupper(y); });
    }
};

}  // namespace virtual_pc
