#include "json/json_writer.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <type_traits>
#include <utility>

namespace {

constexpr std::wstring_view kHexDigits = L"0123456789abcdef";

wchar_t* Copy(std::wstring_view text, wchar_t* to)
{
    for (const wchar_t character : text) *to++ = character;
    return to;
}

bool IsPlain(wchar_t character)
{
    return character >= 0x20 && character < 0x7F && character != L'"' && character != L'\\';
}

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
    json += L'"';
    for (std::size_t at = 0; at < text.size();) {
        std::size_t end = at;
        while (end < text.size() && IsPlain(text[end])) ++end;
        json.append(text, at, end - at);
        if (end < text.size()) AppendEscaped(json, text[end]);
        at = end + 1;
    }
    json += L'"';
}

}  // namespace

JsonObject& JsonObject::Text(std::wstring_view name, std::wstring_view value)
{
    if (!std::ranges::all_of(value, IsPlain)) return Raw(name, QuoteJson(value));
    wchar_t* to = Put(name, value.size() + 2);
    *to++ = L'"';
    to = Copy(value, to);
    *to = L'"';
    return *this;
}

JsonObject& JsonObject::Time(std::wstring_view name, UtcTime value)
{
    wchar_t* const to = Put(name, kUtcLength + 2);
    to[0] = to[kUtcLength + 1] = L'"';
    WriteUtc(value, to + 1);
    return *this;
}

JsonObject& JsonObject::Number(std::wstring_view name, std::int64_t value)
{
    char digits[24];
    const char* const begin = digits;
    const char* const end = std::to_chars(std::begin(digits), std::end(digits), value).ptr;
    std::copy(begin, end, Put(name, static_cast<std::size_t>(end - begin)));
    return *this;
}

JsonObject& JsonObject::Flag(std::wstring_view name, bool value)
{
    return Raw(name, value ? L"true" : L"false");
}

JsonObject& JsonObject::Raw(std::wstring_view name, std::wstring_view json)
{
    Copy(json, Put(name, json.size()));
    return *this;
}

JsonObject& JsonObject::Object(std::wstring_view name, const JsonObject& value)
{
    wchar_t* to = Put(name, value.m_length + 1);
    to = Copy(std::wstring_view(value.m_text.data(), value.m_length), to);
    *to = L'}';
    return *this;
}

JsonObject& JsonObject::Begin(std::wstring_view name)
{
    *Put(name, 1) = L'{';
    return *this;
}

JsonObject& JsonObject::End()
{
    *Extend(1) = L'}';
    return *this;
}

JsonObject& JsonObject::Members(const JsonObject& other)
{
    const std::wstring_view members(other.m_text.data() + 1, other.m_length - 1);
    if (members.empty()) return *this;
    if (m_length > 1) *Extend(1) = L',';
    Copy(members, Extend(members.size()));
    return *this;
}

std::wstring JsonObject::Done() &&
{
    End();
    m_text.resize(m_length);
    return std::move(m_text);
}

wchar_t* JsonObject::Put(std::wstring_view name, std::size_t length)
{
    const bool follows = m_text[m_length - 1] != L'{';
    wchar_t* to = Extend(follows + name.size() + 3 + length);
    if (follows) *to++ = L',';
    *to++ = L'"';
    to = Copy(name, to);
    *to++ = L'"';
    *to++ = L':';
    return to;
}

// A record has dozens of members, and one is made for each change: the text grows seldom.
wchar_t* JsonObject::Extend(std::size_t length)
{
    const std::size_t at = m_length;
    m_length += length;
    if (m_length > m_text.size()) m_text.resize(2 * m_length);
    return m_text.data() + at;
}

std::wstring QuoteJson(std::wstring_view text)
{
    std::wstring quoted;
    AppendQuoted(quoted, text);
    return quoted;
}
