#include "platform/virtual/eventlog/event_file.h"

#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>

#include "platform/virtual/base/text.h"

namespace virtual_pc {
namespace {

// What would end a field or a line, and what stands after a backslash in its place.
constexpr std::array<std::pair<char, char>, 4> kEscapes = {
    {{'\\', '\\'}, {'\t', 't'}, {'\r', 'r'}, {'\n', 'n'}}};

std::string EscapeField(std::wstring_view text)
{
    std::string escaped;
    for (const char character : ToUtf8(text)) {
        const auto* const escape =
            std::ranges::find(kEscapes, character, &std::pair<char, char>::first);
        if (escape != kEscapes.end()) escaped += '\\';
        escaped += escape != kEscapes.end() ? escape->second : character;
    }
    return escaped;
}

std::optional<std::wstring> UnescapeField(std::string_view field)
{
    std::string text;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] != '\\') {
            text += field[i];
            continue;
        }
        const auto* const escape =
            ++i < field.size()
                ? std::ranges::find(kEscapes, field[i], &std::pair<char, char>::second)
                : kEscapes.end();
        if (escape == kEscapes.end()) return std::nullopt;
        text += escape->first;
    }
    return FromUtf8(text);
}

std::string HexOf(const std::vector<BYTE>& data)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string digits;
    for (const BYTE byte : data) {
        digits += kDigits[byte >> 4];
        digits += kDigits[byte & 0xF];
    }
    return digits;
}

template <class Number>
bool ReadField(std::string_view field, Number& number, int base = 10)
{
    const char* const end = field.data() + field.size();
    const auto read = std::from_chars(field.data(), end, number, base);
    return read.ec == std::errc{} && read.ptr == end;
}

bool ReadHex(std::string_view digits, std::vector<BYTE>& data)
{
    if (digits.size() % 2 != 0) return false;
    for (; !digits.empty(); digits.remove_prefix(2)) {
        BYTE byte = 0;
        if (!ReadField(digits.substr(0, 2), byte, 16)) return false;
        data.push_back(byte);
    }
    return true;
}

std::vector<std::string_view> FieldsOf(std::string_view line)
{
    std::vector<std::string_view> fields;
    for (std::size_t tab = 0; (tab = line.find('\t')) != std::string_view::npos;) {
        fields.push_back(line.substr(0, tab));
        line.remove_prefix(tab + 1);
    }
    fields.push_back(line);
    return fields;
}

std::optional<EventRecord> ReadRecord(std::string_view line, std::uint64_t& number)
{
    enum
    {
        kNumber,
        kClock,
        kType,
        kCategory,
        kId,
        kData,
        kSource,
        kFirstString
    };
    const std::vector<std::string_view> fields = FieldsOf(line);
    EventRecord record;
    CalendarTime::rep clock = 0;
    if (fields.size() < kFirstString || !ReadField(fields[kNumber], number) ||
        !ReadField(fields[kClock], clock) || !ReadField(fields[kType], record.type) ||
        !ReadField(fields[kCategory], record.category) ||
        !ReadField(fields[kId], record.event_id) || !ReadHex(fields[kData], record.data)) {
        return std::nullopt;
    }
    record.clock = CalendarTime(clock);
    for (std::size_t i = kSource; i < fields.size(); ++i) {
        auto text = UnescapeField(fields[i]);
        if (!text) return std::nullopt;
        if (i == kSource) {
            record.source = std::move(*text);
        } else {
            record.strings.push_back(std::move(*text));
        }
    }
    return record;
}

}  // namespace

void WriteEventFile(const std::string& file, const std::deque<EventRecord>& records,
                    std::uint64_t first_number)
{
    // Beside the file, and in its place when it is whole: a full disk costs the new records only.
    const std::string whole = file + ".new";
    std::ofstream stream(whole, std::ios::binary);
    for (const EventRecord& record : records) {
        stream << first_number++ << '\t' << record.clock.count() << '\t' << record.type << '\t'
               << record.category << '\t' << record.event_id << '\t' << HexOf(record.data) << '\t'
               << EscapeField(record.source);
        for (const std::wstring& string : record.strings) stream << '\t' << EscapeField(string);
        stream << '\n';
    }
    stream.close();
    std::error_code error;
    if (stream) std::filesystem::rename(whole, file, error);
    if (!stream || error) throw std::runtime_error(file + ": cannot be written");
}

EventFile ReadEventFile(const std::string& file)
{
    EventFile read;
    std::ifstream stream(file, std::ios::binary);
    std::uint64_t line_number = 0;
    for (std::string line; std::getline(stream, line);) {
        ++line_number;
        std::uint64_t number = 0;
        auto record = ReadRecord(line, number);
        const std::string place = file + ":" + std::to_string(line_number) + ": ";
        if (!record) throw std::runtime_error(place + "is no record of the event log");
        if (read.records.empty()) read.first_number = number;
        if (number != read.first_number + read.records.size()) {
            throw std::runtime_error(place + "does not follow the record before it");
        }
        read.records.push_back(std::move(*record));
    }
    return read;
}

}  // namespace virtual_pc
