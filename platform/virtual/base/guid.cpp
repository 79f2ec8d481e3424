#include "platform/virtual/base/guid.h"

#include <cstring>

namespace virtual_pc {
namespace {

constexpr std::size_t kGuidLength = 36;
// Where the digits of each of a GUID's 16 bytes stand in its text, by the byte's place in memory.
constexpr std::size_t kGuidDigits[16] = {6, 4, 2, 0, 11, 9, 16, 14, 19, 21, 24, 26, 28, 30, 32, 34};
constexpr std::size_t kGuidHyphens[] = {8, 13, 18, 23};

}  // namespace

bool GuidLess::operator()(const GUID& a, const GUID& b) const
{
    return std::memcmp(&a, &b, sizeof(GUID)) < 0;
}

std::wstring FormatGuid(const GUID& guid)
{
    static constexpr wchar_t kDigits[] = L"0123456789ABCDEF";
    BYTE bytes[16];
    std::memcpy(bytes, &guid, sizeof(bytes));
    std::wstring text(kGuidLength, L'-');
    for (std::size_t i = 0; i < 16; ++i) {
        text[kGuidDigits[i]] = kDigits[bytes[i] >> 4];
        text[kGuidDigits[i] + 1] = kDigits[bytes[i] & 15];
    }
    return text;
}

std::optional<GUID> ParseGuid(std::wstring_view text)
{
    if (text.size() != kGuidLength) return std::nullopt;
    const auto digit = [](wchar_t c) -> int {
        if (c >= L'0' && c <= L'9') return c - L'0';
        if (c >= L'A' && c <= L'F') return c - L'A' + 10;
        if (c >= L'a' && c <= L'f') return c - L'a' + 10;
        return -1;
    };
    for (const std::size_t at : kGuidHyphens) {
        if (text[at] != L'-') return std::nullopt;
    }
    BYTE bytes[16];
    for (std::size_t i = 0; i < 16; ++i) {
        const int high = digit(text[kGuidDigits[i]]);
        const int low = digit(text[kGuidDigits[i] + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        bytes[i] = static_cast<BYTE>(high * 16 + low);
    }
    GUID guid;
    std::memcpy(&guid, bytes, sizeof(guid));
    return guid;
}

}  // namespace virtual_pc
