// Reads JSON: a line of the history, or the published state.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "json/utc.h"

// A value as it stands in the text. What is not there, or of another kind, reads as nothing.
class JsonValue
{
public:
    // Nothing for a text that is not JSON, such as a line of which the end is missing.
    static std::optional<JsonValue> Read(std::wstring_view text);

    // A member of an object; a null value when there is none.
    const JsonValue& operator[](std::wstring_view name) const;

    bool IsNull() const { return m_kind == Kind::null; }
    bool Flag() const { return m_kind == Kind::flag && m_flag; }
    std::int64_t Number(std::int64_t otherwise = 0) const
    {
        return m_kind == Kind::number ? m_number : otherwise;
    }
    const std::wstring& Text() const { return m_text; }
    std::optional<UtcTime> Time() const { return ParseUtc(m_text); }
    const std::vector<JsonValue>& Elements() const { return m_elements; }

private:
    friend class JsonReader;
    enum class Kind
    {
        null,
        flag,
        number,
        text,
        object,
        array,
    };

    Kind m_kind = Kind::null;
    bool m_flag = false;
    std::int64_t m_number = 0;
    std::wstring m_text;
    std::vector<JsonValue> m_elements;  // of an array, or an object's values
    std::vector<std::wstring> m_names;  // of an object's values
};
