// Writes JSON: what the published state, the history and holvctl need of it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "json/utc.h"

// An object, as one line of text in plain ASCII. The names are plain letters.
class JsonObject
{
public:
    JsonObject() = default;
    // With room for so many characters, of which it may have more.
    explicit JsonObject(std::size_t room) { m_text.resize(1 + room); }

    JsonObject& Text(std::wstring_view name, std::wstring_view value);
    JsonObject& Number(std::wstring_view name, std::int64_t value);
    JsonObject& Flag(std::wstring_view name, bool value);
    JsonObject& Time(std::wstring_view name, UtcTime value);
    JsonObject& Null(std::wstring_view name) { return Raw(name, L"null"); }
    // A value that is JSON already.
    JsonObject& Raw(std::wstring_view name, std::wstring_view json);
    JsonObject& Object(std::wstring_view name, const JsonObject& value);
    // The members between the two are an inner object's.
    JsonObject& Begin(std::wstring_view name);
    JsonObject& End();
    // Another object's members.
    JsonObject& Members(const JsonObject& other);

    std::wstring Done() const& { return JsonObject(*this).Done(); }
    std::wstring Done() &&;

private:
    // Adds a member whose value has so many characters, and returns where to write them.
    wchar_t* Put(std::wstring_view name, std::size_t length);
    // Room for so many characters more.
    wchar_t* Extend(std::size_t length);

    std::wstring m_text = L"{";  // and room behind
    std::size_t m_length = 1;
};

// A text in its quotes.
std::wstring QuoteJson(std::wstring_view text);

// "[1,2]" of JSON values.
class JsonArray
{
public:
    void Add(std::wstring_view json)
    {
        if (!m_elements.empty()) m_elements += L',';
        m_elements += json;
    }
    std::wstring Done() const { return L"[" + m_elements + L"]"; }

private:
    std::wstring m_elements;
};
