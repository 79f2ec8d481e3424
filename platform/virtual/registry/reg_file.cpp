#include "platform/virtual/registry/reg_file.h"

#include <cstring>
#include <cwctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "platform/virtual/base/text.h"

namespace virtual_pc {
namespace {

constexpr std::wstring_view kHeader = L"Windows Registry Editor Version 5.00";
constexpr std::size_t kLineWidth = 80;

bool IsText(DWORD type) { return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ; }

// --- Code units: the file's text values are UTF-16, the registry's are wchar_t ---

std::vector<BYTE> ToUtf16(std::wstring_view text)
{
    std::vector<BYTE> bytes;
    const auto put = [&](std::uint32_t unit) {
        bytes.push_back(static_cast<BYTE>(unit & 0xFF));
        bytes.push_back(static_cast<BYTE>(unit >> 8));
    };
    for (const wchar_t character : text) {
        const auto code = static_cast<std::uint32_t>(std::wint_t(character));
        if (code < 0x10000) {
            put(code);
        } else {
            put(0xD800 + ((code - 0x10000) >> 10));
            put(0xDC00 + ((code - 0x10000) & 0x3FF));
        }
    }
    return bytes;
}

std::wstring FromUtf16(const BYTE* bytes, std::size_t size)
{
    std::wstring text;
    const auto unit = [&](std::size_t at) {
        return static_cast<std::uint32_t>(bytes[at] | bytes[at + 1] << 8);
    };
    for (std::size_t at = 0; at + 1 < size; at += 2) {
        std::uint32_t code = unit(at);
        const bool pair = code >= 0xD800 && code < 0xDC00 && at + 3 < size &&
                          unit(at + 2) >= 0xDC00 && unit(at + 2) < 0xE000;
        if (pair) {
            code = 0x10000 + ((code - 0xD800) << 10) + (unit(at + 2) - 0xDC00);
            at += 2;
        }
        text += static_cast<wchar_t>(code);
    }
    return text;
}

std::wstring ReadText(const std::string& file)
{
    std::ifstream stream(file, std::ios::binary);
    if (!stream) throw std::runtime_error(file + ": cannot be read");
    const std::string bytes(std::istreambuf_iterator<char>(stream), {});
    if (bytes.starts_with("\xFF\xFE")) {
        return FromUtf16(reinterpret_cast<const BYTE*>(bytes.data()) + 2, bytes.size() - 2);
    }
    return FromUtf8(bytes.starts_with("\xEF\xBB\xBF") ? bytes.substr(3) : bytes);
}

// Reads hexadecimal digits, at most `most` of them; nothing for other characters or none.
std::optional<DWORD> ParseHex(std::wstring_view digits, std::size_t most)
{
    if (digits.empty() || digits.size() > most) return std::nullopt;
    DWORD number = 0;
    for (const wchar_t digit : digits) {
        if (!std::iswxdigit(static_cast<wint_t>(digit))) return std::nullopt;
        const auto character = static_cast<DWORD>(std::towlower(static_cast<wint_t>(digit)));
        number = number * 16 + (character <= L'9' ? character - L'0' : character - L'a' + 10);
    }
    return number;
}

class RegFileReader
{
public:
    explicit RegFileReader(const std::string& file) : m_file(file), m_text(ReadText(file)) {}

    std::vector<RegFileChange> Read()
    {
        if (Trim(NextLine().value_or(L"")) != kHeader) {
            Fail("the first line is not \"" + ToUtf8(kHeader) + "\"");
        }
        while (const std::optional<std::wstring> line = NextLine()) {
            const std::wstring_view text = Trim(*line);
            if (text.empty() || text.front() == L';') continue;
            if (text.front() == L'[') {
                ReadKey(text);
            } else {
                ReadValue(text);
            }
        }
        return std::move(m_changes);
    }

private:
    static std::wstring_view Trim(std::wstring_view text)
    {
        constexpr std::wstring_view kBlanks = L" \t\r";
        const std::size_t first = text.find_first_not_of(kBlanks);
        if (first == text.npos) return {};
        return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
    }

    [[noreturn]] void Fail(const std::string& what) const
    {
        throw std::runtime_error(m_file + ":" + std::to_string(m_line) + ": " + what);
    }

    // The next line, joined with the lines that continue it after a backslash at its end.
    std::optional<std::wstring> NextLine()
    {
        if (m_at >= m_text.size()) return std::nullopt;
        std::wstring line;
        m_line = m_next_line;
        for (bool more = true; more && m_at < m_text.size();) {
            const std::size_t end = std::min(m_text.find(L'\n', m_at), m_text.size());
            std::wstring_view part = Trim(std::wstring_view(m_text).substr(m_at, end - m_at));
            m_at = end + 1;
            ++m_next_line;
            // Only hexadecimal data, so after a comma or a colon: a quoted text may end in a
            // backslash too.
            more = part.ends_with(L",\\") || part.ends_with(L":\\");
            if (more) part.remove_suffix(1);
            line += part;
        }
        return line;
    }

    void ReadKey(std::wstring_view text)
    {
        if (text.back() != L']') Fail("\"" + ToUtf8(text) + "\" has no closing bracket");
        text = text.substr(1, text.size() - 2);
        const bool deletes = text.starts_with(L'-');
        if (deletes) text.remove_prefix(1);
        try {
            m_key = Registry::Parse(text);
        } catch (const std::invalid_argument& error) {
            Fail(error.what());
        }
        if (deletes && m_key->path.empty()) Fail("a root cannot be deleted");
        Add(deletes ? RegFileChange::What::delete_key : RegFileChange::What::key);
        m_deleted = deletes;
    }

    void ReadValue(std::wstring_view text)
    {
        if (!m_key || m_deleted) Fail("\"" + ToUtf8(text) + "\" belongs to no key");
        std::wstring name;
        if (text.front() == L'@') {
            text.remove_prefix(1);
        } else {
            name = Quoted(text);
        }
        text = Trim(text);
        if (!text.starts_with(L'=')) Fail("\"=\" is expected at \"" + ToUtf8(text) + "\"");
        text = Trim(text.substr(1));
        if (text == L"-") {
            Add(RegFileChange::What::delete_value, name);
        } else {
            Add(RegFileChange::What::value, name, Data(text));
        }
    }

    // Removes the quoted text at the beginning of `text`, and returns it.
    std::wstring Quoted(std::wstring_view& text)
    {
        const std::wstring_view whole = text;
        if (!text.starts_with(L'"')) Fail("\"" + ToUtf8(text) + "\" is neither a key nor a value");
        std::wstring result;
        for (std::size_t at = 1; at < text.size(); ++at) {
            if (text[at] == L'"') {
                text.remove_prefix(at + 1);
                return result;
            }
            if (text[at] == L'\\' && at + 1 < text.size()) ++at;
            result += text[at];
        }
        Fail("the quotation mark at " + ToUtf8(whole) + " is never closed");
    }

    RegistryValue Data(std::wstring_view text)
    {
        constexpr std::wstring_view kDword = L"dword:";
        if (text.starts_with(L'"')) {
            std::wstring_view rest = text;
            const std::wstring string = Quoted(rest);
            if (!Trim(rest).empty()) Fail("\"" + ToUtf8(rest) + "\" follows the text");
            return RegistryValue::String(string);
        }
        if (text.starts_with(kDword)) {
            const std::optional<DWORD> number = ParseHex(text.substr(kDword.size()), 8);
            if (!number)
                Fail("\"" + ToUtf8(text) + "\" is no number of up to 8 hexadecimal digits");
            return RegistryValue::Dword(*number);
        }
        return HexData(text);
    }

    // hex:01,02 or hex(N):01,02, with N the type.
    RegistryValue HexData(std::wstring_view text)
    {
        const std::size_t colon = text.find(L':');
        std::wstring_view kind = text.substr(0, std::min(colon, text.size()));
        std::optional<DWORD> type;
        if (kind == L"hex") type = REG_BINARY;
        if (kind.starts_with(L"hex(") && kind.ends_with(L")")) {
            type = ParseHex(kind.substr(4, kind.size() - 5), 8);
        }
        if (colon == text.npos || !type) {
            Fail("\"" + ToUtf8(text) + "\" is no text, dword, hex or hex(type)");
        }
        RegistryValue value{*type, Bytes(text.substr(colon + 1))};
        if (IsText(*type)) {
            const std::wstring string = FromUtf16(value.data.data(), value.data.size());
            value.data.resize(string.size() * sizeof(wchar_t));
            if (!string.empty()) std::memcpy(value.data.data(), string.data(), value.data.size());
        }
        return value;
    }

    std::vector<BYTE> Bytes(std::wstring_view text)
    {
        std::vector<BYTE> bytes;
        while (!text.empty()) {
            const std::size_t comma = std::min(text.find(L','), text.size());
            const std::wstring_view digits = Trim(text.substr(0, comma));
            const std::optional<DWORD> byte = ParseHex(digits, 2);
            if (!byte) Fail("\"" + ToUtf8(digits) + "\" is no byte of two hexadecimal digits");
            bytes.push_back(static_cast<BYTE>(*byte));
            text.remove_prefix(std::min(comma + 1, text.size()));
        }
        return bytes;
    }

    void Add(RegFileChange::What what, std::wstring name = {}, RegistryValue value = {})
    {
        m_changes.push_back({what, *m_key, std::move(name), std::move(value)});
    }

    std::string m_file;
    std::wstring m_text;
    std::size_t m_at = 0;
    int m_line = 1;
    int m_next_line = 1;
    std::optional<RegistryPath> m_key;
    bool m_deleted = false;
    std::vector<RegFileChange> m_changes;
};

// --- Writing ---

std::wstring Quote(std::wstring_view text)
{
    std::wstring quoted = L"\"";
    for (const wchar_t character : text) {
        if (character == L'"' || character == L'\\') quoted += L'\\';
        quoted += character;
    }
    return quoted + L"\"";
}

std::wstring HexDigits(DWORD number, std::size_t count)
{
    std::wstring digits(count, L'0');
    for (std::size_t i = count; i-- > 0; number /= 16) digits[i] = L"0123456789abcdef"[number % 16];
    return digits;
}

// Whether the data can be written as a quoted text without loss.
bool FitsQuotes(const RegistryValue& value)
{
    return value.type == REG_SZ && value.data == RegistryValue::String(value.Text()).data &&
           value.Text().find_first_of(L"\r\n") == std::wstring::npos;
}

}  // namespace

std::vector<RegFileChange> ReadRegFile(const std::string& file)
{
    return RegFileReader(file).Read();
}

void RegFileWriter::Add(const RegistryPath& path, const RegistryNode& key)
{
    if (key.is_volatile) return;
    if (!path.path.empty()) {
        const std::wstring root =
            path.root == RegistryRoot::current_user ? L"HKEY_CURRENT_USER" : L"HKEY_LOCAL_MACHINE";
        m_text += L"\r\n[" + root + L"\\" + path.path + L"]\r\n";
        for (const auto& [name, value] : key.values) AddValue(name, value);
    }
    for (const auto& [name, child] : key.keys) {
        Add({path.root, path.path.empty() ? name : path.path + L"\\" + name}, *child);
    }
}

void RegFileWriter::AddValue(const std::wstring& name, const RegistryValue& value)
{
    std::wstring line = (name.empty() ? L"@" : Quote(name)) + L"=";
    if (FitsQuotes(value)) {
        m_text += line + Quote(value.Text()) + L"\r\n";
        return;
    }
    if (value.type == REG_DWORD && value.data.size() == sizeof(DWORD)) {
        DWORD number = 0;
        std::memcpy(&number, value.data.data(), sizeof(number));
        m_text += line + L"dword:" + HexDigits(number, 8) + L"\r\n";
        return;
    }
    line += value.type == REG_BINARY ? L"hex:" : L"hex(" + HexDigits(value.type, 1) + L"):";
    std::vector<BYTE> bytes = value.data;
    if (IsText(value.type)) {
        std::wstring text(value.data.size() / sizeof(wchar_t), L'\0');
        if (!text.empty()) {
            std::memcpy(text.data(), value.data.data(), text.size() * sizeof(wchar_t));
        }
        bytes = ToUtf16(text);
    }
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const bool last = i + 1 == bytes.size();
        line += HexDigits(bytes[i], 2) + (last ? L"" : L",");
        if (!last && line.size() + 4 > kLineWidth) {
            m_text += line + L"\\\r\n";
            line = L"  ";
        }
    }
    m_text += line + L"\r\n";
}

void RegFileWriter::Write(const std::string& file) const
{
    // Beside the file, and in its place when it is whole: a full disk costs the new state only.
    const std::string whole = file + ".new";
    std::ofstream stream(whole, std::ios::binary);
    const std::vector<BYTE> bytes = ToUtf16(m_text);
    stream.write("\xFF\xFE", 2);
    stream.write(reinterpret_cast<const char*>(bytes.data()),
                 static_cast<std::streamsize>(bytes.size()));
    stream.close();
    std::error_code error;
    if (stream) std::filesystem::rename(whole, file, error);
    if (!stream || error) throw std::runtime_error(file + ": cannot be written");
}

}  // namespace virtual_pc
