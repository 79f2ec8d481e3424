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
    JsonObject& Text(std::wstring_view name, std::wstring_view value);
    JsonObject& Number(std::wstring_view name, std::int64_t value);
    JsonObject& Flag(std::wstring_view name, bool value);
    JsonObject& Time(std::wstring_view name, UtcTime value);
    JsonObject& Null(std::wstring_view name) { return Raw(name, L"null"); }
    // A value that is JSON already.
    JsonObject& Raw(std::wstring_view name, std::wstring_view json);
    JsonObject& Object(std::wstring_view name, const JsonObject& value);
    // Another object's members.
    JsonObject& Members(const JsonObject& other);

    std::wstring Done() const { return L"{" + m_members + L"}"; }

private:
    // Begins a member, whose value the caller appends.
    std::wstring& Member(std::wstring_view name);

    std::wstring m_members;
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
