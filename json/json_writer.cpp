#include "json/json_writer.h"

#include <charconv>
#include <iterator>
#include <type_traits>

namespace {

constexpr std::wstring_view kHexDigits = L"0123456789abcdef";

void AppendUnit(std::wstring& quoted, std::uint32_t unit)
{
    quoted += L"\\u";
    for (int shift = 12; shift >= 0; shift -= 4) quoted += kHexDigits[unit >> shift & 0xF];
}

void AppendEscaped(std::wstring& json, wchar_t character)
{
    const auto code =
        static_cast<std::uint32_t>(static_cast<std::make_unsigned_t<wchar_t>>(character));
    if (character == L'"' || character == L'\\') {
        json += L'\\';
        json += character;
    } else if (code < 0x10000) {
        AppendUnit(json, code);
    } else {
        AppendUnit(json, 0xD800 + ((code - 0x10000) >> 10));
        AppendUnit(json, 0xDC00 + ((code - 0x10000) & 0x3FF));
    }
}

// A character beyond ASCII is written as its UTF-16 units, so that the text is the same bytes on
// both machines.
void AppendQuoted(std::wstring& json, std::wstring_view text)
{
    const auto is_plain = [](wchar_t character) {
        return character >= 0x20 && character < 0x7F && character != L'"' && character != L'\\';
    };
    json += L'"';
    for (std::size_t at = 0; at < text.size();) {
        std::size_t end = at;
        while (end < text.size() && is_plain(text[end])) ++end;
        json.append(text, at, end - at);
        if (end < text.size()) AppendEscaped(json, text[end]);
        at = end + 1;
    }
    json += L'"';
}

}  // namespace

JsonObject& JsonObject::Text(std::wstring_view name, std::wstring_view value)
{
    AppendQuoted(Member(name), value);
    return *this;
}

JsonObject& JsonObject::Time(std::wstring_view name, UtcTime value)
{
    std::wstring& json = Member(name);
    json += L'"';
    json += FormatUtc(value);
    json += L'"';
    return *this;
}

JsonObject& JsonObject::Number(std::wstring_view name, std::int64_t value)
{
    char digits[24];
    const auto end = std::to_chars(std::begin(digits), std::end(digits), value).ptr;
    Member(name).append(std::begin(digits), end);
    return *this;
}

JsonObject& JsonObject::Flag(std::wstring_view name, bool value)
{
    return Raw(name, value ? L"true" : L"false");
}

JsonObject& JsonObject::Raw(std::wstring_view name, std::wstring_view json)
{
    Member(name) += json;
    return *this;
}

JsonObject& JsonObject::Object(std::wstring_view name, const JsonObject& value)
{
    std::wstring& json = Member(name);
    json += L'{';
    json += value.m_members;
    json += L'}';
    return *this;
}

JsonObject& JsonObject::Members(const JsonObject& other)
{
    if (!m_members.empty() && !other.m_members.empty()) m_members += L',';
    m_members += other.m_members;
    return *this;
}

std::wstring& JsonObject::Member(std::wstring_view name)
{
    if (!m_members.empty()) m_members += L',';
    m_members += L'"';
    m_members += name;
    m_members += L"\":";
    return m_members;
}

std::wstring QuoteJson(std::wstring_view text)
{
    std::wstring quoted;
    AppendQuoted(quoted, text);
    return quoted;
}
