#include "json/json_writer.h"

#include <type_traits>

namespace {

constexpr std::wstring_view kHexDigits = L"0123456789abcdef";

void AppendUnit(std::wstring& quoted, std::uint32_t unit)
{
    quoted += L"\\u";
    for (int shift = 12; shift >= 0; shift -= 4) quoted += kHexDigits[unit >> shift & 0xF];
}

}  // namespace

// A character beyond ASCII is written as its UTF-16 units, so that the text is the same bytes on
// both machines.
std::wstring QuoteJson(std::wstring_view text)
{
    std::wstring quoted = L"\"";
    for (const wchar_t character : text) {
        const auto code =
            static_cast<std::uint32_t>(static_cast<std::make_unsigned_t<wchar_t>>(character));
        if (character == L'"' || character == L'\\') {
            quoted += L'\\';
            quoted += character;
        } else if (code >= 0x20 && code < 0x7F) {
            quoted += character;
        } else if (code < 0x10000) {
            AppendUnit(quoted, code);
        } else {
            AppendUnit(quoted, 0xD800 + ((code - 0x10000) >> 10));
            AppendUnit(quoted, 0xDC00 + ((code - 0x10000) & 0x3FF));
        }
    }
    return quoted + L'"';
}

JsonObject& JsonObject::Text(std::wstring_view name, std::wstring_view value)
{
    return Raw(name, QuoteJson(value));
}

JsonObject& JsonObject::Number(std::wstring_view name, std::int64_t value)
{
    return Raw(name, std::to_wstring(value));
}

JsonObject& JsonObject::Flag(std::wstring_view name, bool value)
{
    return Raw(name, value ? L"true" : L"false");
}

JsonObject& JsonObject::Raw(std::wstring_view name, std::wstring_view json)
{
    if (!m_members.empty()) m_members += L',';
    m_members += QuoteJson(name) + L':';
    m_members += json;
    return *this;
}
