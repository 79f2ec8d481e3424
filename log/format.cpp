#include "log/format.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <string>

namespace {

// Fills a buffer and keeps room for the terminating zero.
class Writer
{
public:
    explicit Writer(std::span<wchar_t> buffer)
        : m_begin(buffer.data()), m_at(m_begin), m_end(m_begin + buffer.size() - 1)
    {
    }

    bool fits() const { return m_fits; }

    void Put(const wchar_t* text, std::size_t count)
    {
        count = Take(count);
        std::memcpy(m_at, text, count * sizeof(wchar_t));
        m_at += count;
    }
    void Put(wchar_t character) { Repeat(character, 1); }
    void Repeat(wchar_t character, std::size_t count)
    {
        count = Take(count);
        m_at = std::fill_n(m_at, count, character);
    }
    void PutWidened(const char* text, std::size_t count)
    {
        count = Take(count);
        m_at = std::transform(text, text + count, m_at, [](char byte) {
            return static_cast<wchar_t>(static_cast<unsigned char>(byte));
        });
    }

    FormatResult Finish()
    {
        *m_at = L'\0';
        return {static_cast<std::size_t>(m_at - m_begin), m_fits};
    }

private:
    // How many of `count` characters there is room for.
    std::size_t Take(std::size_t count)
    {
        const auto room = static_cast<std::size_t>(m_end - m_at);
        if (count <= room) return count;
        m_fits = false;
        return room;
    }

    wchar_t* m_begin;
    wchar_t* m_at;
    wchar_t* m_end;
    bool m_fits = true;
};

// Calls `put`, which writes `length` characters, and pads them to the conversion's width.
template <class PutText>
void PutInField(Writer& writer, const Conversion& conversion, std::size_t length, PutText put)
{
    const auto width = static_cast<std::size_t>(conversion.width);
    const std::size_t padding = width > length ? width - length : 0;
    if (!conversion.left) writer.Repeat(L' ', padding);
    put();
    if (conversion.left) writer.Repeat(L' ', padding);
}

// --- Numbers ---

constexpr std::size_t kMaxDigits = 20;  // of 64 bits, in decimal

// Writes the digits, right-aligned, into `digits` (none for zero) and returns the first.
const wchar_t* DigitsOf(std::uint64_t number, wchar_t letter, wchar_t (&digits)[kMaxDigits])
{
    wchar_t* first = digits + kMaxDigits;
    if (letter == L'd' || letter == L'u') {
        for (; number != 0; number /= 10) *--first = static_cast<wchar_t>(L'0' + number % 10);
        return first;
    }
    const wchar_t* const alphabet = letter == L'x' ? L"0123456789abcdef" : L"0123456789ABCDEF";
    for (; number != 0; number >>= 4) *--first = alphabet[number & 0xF];
    return first;
}

const wchar_t* PrefixOf(const Conversion& conversion, bool negative, std::uint64_t magnitude)
{
    switch (conversion.letter) {
        case L'd':
            return negative ? L"-" : conversion.plus ? L"+" : conversion.blank ? L" " : L"";
        case L'x':
            return conversion.alternate && magnitude != 0 ? L"0x" : L"";
        case L'X':
            return conversion.alternate && magnitude != 0 ? L"0X" : L"";
        default:
            return L"";
    }
}

void PutNumber(Writer& writer, const Conversion& conversion, std::uint64_t number)
{
    const bool is_signed = conversion.letter == L'd';
    if (conversion.takes == ArgumentKind::integer32) {
        const auto low = static_cast<std::uint32_t>(number);
        number = is_signed ? static_cast<std::uint64_t>(static_cast<std::int32_t>(low)) : low;
    }
    const bool negative = is_signed && static_cast<std::int64_t>(number) < 0;
    const std::uint64_t magnitude = negative ? 0 - number : number;

    wchar_t digits[kMaxDigits];
    const wchar_t* const first = DigitsOf(magnitude, conversion.letter, digits);
    const auto count = static_cast<std::size_t>(digits + kMaxDigits - first);
    const wchar_t* const prefix = PrefixOf(conversion, negative, magnitude);
    const std::size_t prefix_length = std::wcslen(prefix);

    // The precision is the least number of digits; if given, it disables zero padding.
    std::size_t least =
        conversion.precision < 0 ? 1 : static_cast<std::size_t>(conversion.precision);
    if (conversion.precision < 0 && conversion.zero && !conversion.left) {
        const auto width = static_cast<std::size_t>(conversion.width);
        least = std::max(least, width > prefix_length ? width - prefix_length : 0);
    }
    const std::size_t zeros = least > count ? least - count : 0;
    PutInField(writer, conversion, prefix_length + zeros + count, [&] {
        writer.Put(prefix, prefix_length);
        writer.Repeat(L'0', zeros);
        writer.Put(first, count);
    });
}

void PutPointer(Writer& writer, const Conversion& conversion, const void* pointer)
{
    Conversion digits = conversion;
    digits.letter = L'X';
    digits.takes = ArgumentKind::integer64;
    digits.precision = 16;
    PutNumber(writer, digits, reinterpret_cast<std::uintptr_t>(pointer));
}

// --- Text ---

// The text's length, at most the precision: text with a precision need not be terminated.
template <class Character>
std::size_t LengthOf(const Character* text, const Conversion& conversion)
{
    if (conversion.precision < 0) return std::char_traits<Character>::length(text);
    const auto most = static_cast<std::size_t>(conversion.precision);
    return static_cast<std::size_t>(std::find(text, text + most, Character{}) - text);
}

void PutWide(Writer& writer, const Conversion& conversion, const wchar_t* text)
{
    if (!text) text = L"(null)";
    const std::size_t length = LengthOf(text, conversion);
    PutInField(writer, conversion, length, [&] { writer.Put(text, length); });
}

void PutNarrow(Writer& writer, const Conversion& conversion, const char* text)
{
    if (!text) text = "(null)";
    const std::size_t length = LengthOf(text, conversion);
    PutInField(writer, conversion, length, [&] { writer.PutWidened(text, length); });
}

void PutConversion(Writer& writer, const Conversion& conversion, const FormatArgument& argument)
{
    switch (conversion.takes) {
        case ArgumentKind::wide_text:
            return PutWide(writer, conversion, argument.wide());
        case ArgumentKind::narrow_text:
            return PutNarrow(writer, conversion, argument.narrow());
        case ArgumentKind::pointer:
            return PutPointer(writer, conversion, argument.pointer());
        default:
            break;
    }
    if (conversion.letter != L'c') return PutNumber(writer, conversion, argument.number());
    PutInField(writer, conversion, 1, [&] { writer.Put(static_cast<wchar_t>(argument.number())); });
}

}  // namespace

FormatResult FormatPacked(std::span<wchar_t> buffer, const wchar_t* format,
                          std::span<const FormatArgument> arguments)
{
    if (buffer.empty()) return {0, false};
    Writer writer(buffer);
    auto argument = arguments.begin();
    while (*format && writer.fits()) {
        if (*format != L'%') {
            const wchar_t* const literal = format;
            while (*format && *format != L'%') ++format;
            writer.Put(literal, static_cast<std::size_t>(format - literal));
            continue;
        }
        Conversion conversion;
        format = ReadConversion(format + 1, conversion);
        if (conversion.letter == L'%') {
            writer.Put(L'%');
        } else {
            PutConversion(writer, conversion, *argument++);
        }
    }
    return writer.Finish();
}
