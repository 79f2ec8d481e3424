#include "platform/virtual/eventlog/message_file.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace virtual_pc {
namespace {

constexpr DWORD kEnglish = 0x409;

// Decimal, or hexadecimal after 0x.
std::optional<DWORD> ParseNumber(std::string_view text)
{
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    if (hexadecimal) text.remove_prefix(2);
    DWORD number = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number, hexadecimal ? 16 : 10);
    if (text.empty() || error != std::errc{} || rest != end) return std::nullopt;
    return number;
}

class MessageFileReader
{
public:
    explicit MessageFileReader(const std::string& file) : m_path(file), m_file(file)
    {
        if (!m_file) throw std::runtime_error(file + ": cannot be read");
    }

    MessageTable Read()
    {
        while (NextLine()) {
            const std::string_view line = Trim(m_line);
            if (!line.empty() && line.front() != ';') ReadKeyword(line);
        }
        RequireText();
        return std::move(m_table);
    }

private:
    static std::string_view Trim(std::string_view text)
    {
        constexpr std::string_view kBlanks = " \t\r";
        const std::size_t first = std::min(text.find_first_not_of(kBlanks), text.size());
        const std::size_t last = text.find_last_not_of(kBlanks);
        return text.substr(first, last - first + 1);
    }

    [[noreturn]] void Fail(const std::string& what) const
    {
        throw std::runtime_error(m_path + ":" + std::to_string(m_number) + ": " + what);
    }

    bool NextLine()
    {
        if (!std::getline(m_file, m_line)) return false;
        ++m_number;
        if (m_line.ends_with('\r')) m_line.pop_back();
        return true;
    }

    void ReadKeyword(std::string_view line)
    {
        struct Keyword
        {
            std::string_view name;
            void (MessageFileReader::*read)(std::string_view value);
        };
        static constexpr Keyword kKeywords[] = {
            {"MessageIdTypedef", &MessageFileReader::Skip},
            {"LanguageNames", &MessageFileReader::ReadLanguageNames},
            {"MessageId", &MessageFileReader::ReadId},
            {"SymbolicName", &MessageFileReader::Skip},
            {"Language", &MessageFileReader::ReadText},
        };
        const std::size_t equals = line.find('=');
        if (equals == line.npos) Fail("KEYWORD=VALUE expected, not \"" + std::string(line) + "\"");
        const std::string_view name = Trim(line.substr(0, equals));
        const auto keyword = std::ranges::find(kKeywords, name, &Keyword::name);
        if (keyword == std::end(kKeywords)) Fail("unknown keyword \"" + std::string(name) + "\"");
        (this->*keyword->read)(Trim(line.substr(equals + 1)));
    }

    // For keywords of the compiler's other outputs, which do not affect the table.
    void Skip(std::string_view) {}

    // (NAME=NUMBER:FILE NAME=NUMBER:FILE ...)
    void ReadLanguageNames(std::string_view value)
    {
        if (!value.starts_with('(') || !value.ends_with(')')) Fail("LanguageNames=(...) expected");
        value = Trim(value.substr(1, value.size() - 2));
        while (!value.empty()) {
            const std::string_view entry = value.substr(0, value.find(' '));
            const std::size_t equals = std::min(entry.find('='), entry.size());
            const std::size_t colon = std::min(entry.find(':', equals), entry.size());
            const auto number = ParseNumber(
                entry.substr(std::min(equals + 1, colon), colon - std::min(equals + 1, colon)));
            if (!number || colon == entry.size()) {
                Fail("NAME=NUMBER:FILE expected, not \"" + std::string(entry) + "\"");
            }
            m_languages[std::string(entry.substr(0, equals))] = *number;
            value = Trim(value.substr(entry.size()));
        }
    }

    void ReadId(std::string_view value)
    {
        RequireText();
        const auto number = value.empty() ? std::optional(m_id + 1) : ParseNumber(value);
        if (!number) Fail("a number expected, not \"" + std::string(value) + "\"");
        m_id = *number;
        m_lacks_text = true;
        m_has_id = true;
    }

    void ReadText(std::string_view value)
    {
        if (!m_has_id) Fail("a text without a MessageId");
        const auto language = m_languages.find(std::string(value));
        if (language == m_languages.end()) Fail("unknown language \"" + std::string(value) + "\"");
        const int first = m_number;
        std::wstring text;
        while (NextLine() && m_line != ".") {
            for (const char byte : m_line) text += Widen(byte);
            text += L"\r\n";
        }
        if (m_file.eof() && m_line != ".") {
            m_number = first;
            Fail("the text has no closing \".\"");
        }
        m_lacks_text = false;
        if (language->second != kEnglish) return;
        if (!m_table.emplace(m_id, std::move(text)).second) {
            Fail("a second text of message " + std::to_string(m_id));
        }
    }

    // Refuses other bytes than ASCII: they depend on a code page that the file does not name.
    wchar_t Widen(char byte) const
    {
        if (static_cast<unsigned char>(byte) > 0x7F) Fail("a character that is not ASCII");
        return static_cast<wchar_t>(byte);
    }

    void RequireText() const
    {
        if (m_lacks_text) Fail("message " + std::to_string(m_id) + " has no text");
    }

    std::string m_path;
    std::ifstream m_file;
    std::string m_line;
    int m_number = 0;
    std::map<std::string, DWORD> m_languages{{"English", kEnglish}};
    MessageTable m_table;
    DWORD m_id = 0;
    bool m_has_id = false;
    bool m_lacks_text = false;
};

}  // namespace

MessageTable ReadMessageFile(const std::string& file) { return MessageFileReader(file).Read(); }

}  // namespace virtual_pc
