#include "json/json_value.h"

#include <algorithm>
#include <cstdint>

class JsonReader
{
public:
    explicit JsonReader(std::wstring_view text) : m_text(text) {}

    bool ReadWhole(JsonValue& value)
    {
        if (!Read(value, 0)) return false;
        SkipBlanks();
        return m_at == m_text.size();
    }

private:
    using Kind = JsonValue::Kind;
    static constexpr int kDeepest = 16;  // so that a damaged file cannot exhaust the stack

    bool Read(JsonValue& value, int depth)
    {
        SkipBlanks();
        if (m_at == m_text.size() || depth > kDeepest) return false;
        switch (m_text[m_at]) {
            case L'{':
                return ReadMembers(value, L'}', depth);
            case L'[':
                return ReadMembers(value, L']', depth);
            case L'"':
                value.m_kind = Kind::text;
                return ReadText(value.m_text);
            default:
                return ReadWord(value, L"null", Kind::null, false) ||
                       ReadWord(value, L"true", Kind::flag, true) ||
                       ReadWord(value, L"false", Kind::flag, false) || ReadNumber(value);
        }
    }

    // The members of an object, or the elements of an array, up to `end`.
    bool ReadMembers(JsonValue& value, wchar_t end, int depth)
    {
        const bool named = end == L'}';
        value.m_kind = named ? Kind::object : Kind::array;
        ++m_at;
        if (Take(end)) return true;
        do {
            SkipBlanks();
            std::wstring name;
            if (named && (!ReadText(name) || !Take(L':'))) return false;
            JsonValue member;
            if (!Read(member, depth + 1)) return false;
            if (named) value.m_names.push_back(std::move(name));
            value.m_elements.push_back(std::move(member));
        } while (Take(L','));
        return Take(end);
    }

    bool ReadText(std::wstring& text)
    {
        if (m_at == m_text.size() || m_text[m_at++] != L'"') return false;
        while (m_at < m_text.size()) {
            const wchar_t character = m_text[m_at++];
            if (character == L'"') return true;
            if (character != L'\\') {
                text += character;
            } else if (!ReadEscape(text)) {
                return false;
            }
        }
        return false;
    }

    bool ReadEscape(std::wstring& text)
    {
        if (m_at == m_text.size()) return false;
        const wchar_t letter = m_text[m_at++];
        if (letter != L'u') {
            text += letter == L'n' ? L'\n' : letter;
            return true;
        }
        std::uint32_t code = 0;
        for (int digit = 0; digit < 4; ++digit) {
            if (m_at == m_text.size()) return false;
            const std::size_t value = std::wstring_view(L"0123456789abcdef").find(m_text[m_at++]);
            if (value == std::wstring_view::npos) return false;
            code = code * 16 + static_cast<std::uint32_t>(value);
        }
        Append(text, code);
        return true;
    }

    // Where a character of the machine is wider than UTF-16's units, a pair of them is one.
    static void Append(std::wstring& text, std::uint32_t code)
    {
        const auto last = text.empty() ? 0 : static_cast<std::uint32_t>(text.back());
        const bool pair = sizeof(wchar_t) > 2 && last >= 0xD800 && last < 0xDC00 &&
                          code >= 0xDC00 && code < 0xE000;
        if (pair) {
            text.back() = static_cast<wchar_t>(0x10000 + ((last - 0xD800) << 10) + (code - 0xDC00));
        } else {
            text += static_cast<wchar_t>(code);
        }
    }

    bool ReadWord(JsonValue& value, std::wstring_view word, Kind kind, bool flag)
    {
        if (m_text.substr(m_at, word.size()) != word) return false;
        m_at += word.size();
        value.m_kind = kind;
        value.m_flag = flag;
        return true;
    }

    bool ReadNumber(JsonValue& value)
    {
        constexpr std::int64_t kMost = INT64_MAX / 10 - 1;
        const bool negative = m_text[m_at] == L'-';
        if (negative) ++m_at;
        const std::size_t first = m_at;
        std::int64_t number = 0;
        for (; m_at < m_text.size() && m_text[m_at] >= L'0' && m_text[m_at] <= L'9'; ++m_at) {
            if (number > kMost) return false;
            number = number * 10 + (m_text[m_at] - L'0');
        }
        value.m_kind = Kind::number;
        value.m_number = negative ? -number : number;
        return m_at > first;
    }

    void SkipBlanks()
    {
        while (m_at < m_text.size() && (m_text[m_at] == L' ' || m_text[m_at] == L'\t' ||
                                        m_text[m_at] == L'\r' || m_text[m_at] == L'\n')) {
            ++m_at;
        }
    }

    bool Take(wchar_t character)
    {
        SkipBlanks();
        if (m_at == m_text.size() || m_text[m_at] != character) return false;
        ++m_at;
        return true;
    }

    const std::wstring_view m_text;
    std::size_t m_at = 0;
};

std::optional<JsonValue> JsonValue::Read(std::wstring_view text)
{
    JsonValue value;
    if (!JsonReader(text).ReadWhole(value)) return std::nullopt;
    return value;
}

const JsonValue& JsonValue::operator[](std::wstring_view name) const
{
    static const JsonValue nothing;
    // Objects here have few members: a search is quicker than an index.
    const auto found = std::ranges::find(m_names, name);
    return found == m_names.end() ? nothing
                                  : m_elements[static_cast<std::size_t>(found - m_names.begin())];
}
