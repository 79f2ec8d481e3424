#include "platform/virtual/base/os_version.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <utility>

namespace virtual_pc {
namespace {

constexpr std::pair<std::string_view, DWORD> kNames[] = {{"7", kWindows7},
                                                         {"8", kWindows8},
                                                         {"8.1", kWindows81},
                                                         {"10", kWindows10},
                                                         {"11", kWindows11}};

}  // namespace

std::optional<DWORD> ParseOsVersion(std::string_view text)
{
    const auto named = std::ranges::find(kNames, text, &std::pair<std::string_view, DWORD>::first);
    if (named != std::end(kNames)) return named->second;
    unsigned parts[3] = {};
    std::size_t count = 0;
    const char* at = text.data();
    const char* const end = at + text.size();
    for (bool more = true; more; ++count) {
        if (count == std::size(parts)) return std::nullopt;
        const auto [after, error] = std::from_chars(at, end, parts[count]);
        if (error != std::errc{}) return std::nullopt;
        more = after != end;
        if (more && *after != '.') return std::nullopt;
        at = after + (more ? 1 : 0);
    }
    constexpr unsigned kByte = 0xFF, kHalf = 0xFFFF;
    if (count < 2 || parts[0] > kByte || parts[1] > kByte || parts[2] > kHalf) return std::nullopt;
    return OsVersion(parts[0], parts[1], parts[2]);
}

}  // namespace virtual_pc
