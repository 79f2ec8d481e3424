// Formats text like the wide printf of the Windows C runtime, on both machines alike. The compiler
// checks each format against its arguments: a wrong number or type of arguments does not compile.
//
//     wchar_t text[64];
//     FormatText(text, L"slot %u of %s, hr=0x%x", slot, name, hr);
//
// Conversions: %d %i %u %x %X (also with l) take integers of up to 32 bits, with ll or I64 integers
// of 64 bits; %s %ls %ws %wS wide strings, %S 8-bit strings, %c a character, %p any object pointer
// (16 upper-case digits), %% is a per cent sign. Flags, width and precision as in C, without '*'.
// No conversion takes enumerations or floating-point numbers. A null string prints "(null)".
#pragma once

#include <array>
#include <atomic>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

#include "platform/base.h"

enum class ArgumentKind : BYTE
{
    none,
    integer32,  // or smaller
    integer64,
    pointer,
    wide_text,
    narrow_text,
};

template <class T>
consteval ArgumentKind FindArgumentKind()
{
    if constexpr (std::is_integral_v<T>) {
        return sizeof(T) <= 4 ? ArgumentKind::integer32 : ArgumentKind::integer64;
    } else if constexpr (std::is_null_pointer_v<T>) {
        return ArgumentKind::pointer;
    } else if constexpr (std::is_pointer_v<T>) {
        using Pointee = std::remove_const_t<std::remove_pointer_t<T>>;
        if (std::is_same_v<Pointee, wchar_t>) return ArgumentKind::wide_text;
        if (std::is_same_v<Pointee, char>) return ArgumentKind::narrow_text;
        return std::is_function_v<Pointee> ? ArgumentKind::none : ArgumentKind::pointer;
    } else {
        return ArgumentKind::none;
    }
}

// What an argument of type T counts as. An atomic counts as what it holds.
template <class T>
inline constexpr ArgumentKind kArgumentKindOf = FindArgumentKind<T>();
template <class T>
inline constexpr ArgumentKind kArgumentKindOf<std::atomic<T>> = FindArgumentKind<T>();

// One argument. It does not store its type; the format determines it.
class FormatArgument
{
public:
    template <std::integral T>
    explicit FormatArgument(T number)
        : m_number(static_cast<std::uint64_t>(static_cast<std::int64_t>(number)))
    {
    }
    template <class T>
    explicit FormatArgument(const std::atomic<T>& value)
        : FormatArgument(value.load(std::memory_order_relaxed))
    {
    }
    explicit FormatArgument(std::nullptr_t) : m_pointer(nullptr) {}
    explicit FormatArgument(const void* pointer) : m_pointer(pointer) {}
    explicit FormatArgument(const wchar_t* text) : m_wide(text) {}
    explicit FormatArgument(const char* text) : m_narrow(text) {}

    std::uint64_t number() const { return m_number; }
    const void* pointer() const { return m_pointer; }
    const wchar_t* wide() const { return m_wide; }
    const char* narrow() const { return m_narrow; }

private:
    union
    {
        std::uint64_t m_number;
        const void* m_pointer;
        const wchar_t* m_wide;
        const char* m_narrow;
    };
};

// One conversion of a format.
struct Conversion
{
    bool left = false;
    bool zero = false;
    bool plus = false;
    bool blank = false;
    bool alternate = false;
    int width = 0;
    int precision = -1;  // none given
    wchar_t letter = 0;  // %, c, d, u, x, X, p or s
    ArgumentKind takes = ArgumentKind::none;

    constexpr bool Accepts(ArgumentKind kind) const
    {
        if (kind == takes) return true;
        return takes == ArgumentKind::pointer &&
               (kind == ArgumentKind::wide_text || kind == ArgumentKind::narrow_text);
    }
};

// Reads the conversion at `at`, after the per cent sign. Returns the place after it; null for an
// unsupported conversion.
constexpr const wchar_t* ReadConversion(const wchar_t* at, Conversion& conversion);

constexpr bool FormatMatches(const wchar_t* format, std::span<const ArgumentKind> arguments)
{
    std::size_t used = 0;
    while (*format) {
        if (*format++ != L'%') continue;
        Conversion conversion;
        format = ReadConversion(format, conversion);
        if (!format) return false;
        if (conversion.letter == L'%') continue;
        if (used == arguments.size() || !conversion.Accepts(arguments[used++])) return false;
    }
    return used == arguments.size();
}

// Whether `format` can be used with arguments of these types.
template <class... Args>
constexpr bool FormatMatches(const wchar_t* format)
{
    const std::array<ArgumentKind, sizeof...(Args)> kinds{kArgumentKindOf<std::decay_t<Args>>...};
    return FormatMatches(format, std::span(kinds));
}

// Never defined: a format that does not match its arguments calls it, and the compiler's error
// shows this name.
void the_format_does_not_match_its_arguments();

template <class... Args>
class FormatString
{
public:
    consteval FormatString(const wchar_t* text) : m_text(text)
    {
        if (!FormatMatches<Args...>(text)) the_format_does_not_match_its_arguments();
    }
    const wchar_t* text() const { return m_text; }

private:
    const wchar_t* m_text;
};

// The checked format of a function that takes `const Args&...` after it.
template <class... Args>
using FormatFor = FormatString<std::type_identity_t<Args>...>;

template <class... Args>
using PackedArguments = std::array<FormatArgument, sizeof...(Args)>;

struct FormatResult
{
    std::size_t length;  // characters stored, the terminating zero not counted
    bool fits;           // the whole text was stored
};

// Writes the text and a terminating zero into `buffer`, at most its size; longer text is cut. The
// arguments are those that `format` was checked against.
FormatResult FormatPacked(std::span<wchar_t> buffer, const wchar_t* format,
                          std::span<const FormatArgument> arguments);

template <class... Args>
FormatResult FormatText(std::span<wchar_t> buffer, FormatFor<Args...> format, const Args&... args)
{
    const PackedArguments<Args...> packed{FormatArgument(args)...};
    return FormatPacked(buffer, format.text(), packed);
}

// --- Reading a conversion ---

inline constexpr int kWidestField = 1023;

// Reads a decimal number of up to kWidestField; null when it is larger.
constexpr const wchar_t* ReadFieldSize(const wchar_t* at, int& size)
{
    for (size = 0; *at >= L'0' && *at <= L'9'; ++at) {
        size = size * 10 + (*at - L'0');
        if (size > kWidestField) return nullptr;
    }
    return at;
}

constexpr const wchar_t* ReadFlags(const wchar_t* at, Conversion& conversion)
{
    for (;; ++at) {
        switch (*at) {
            case L'-':
                conversion.left = true;
                break;
            case L'0':
                conversion.zero = true;
                break;
            case L'+':
                conversion.plus = true;
                break;
            case L' ':
                conversion.blank = true;
                break;
            case L'#':
                conversion.alternate = true;
                break;
            default:
                return at;
        }
    }
}

enum class LengthPrefix : BYTE
{
    none,
    l,
    w,
    bits64,
};

constexpr const wchar_t* ReadLengthPrefix(const wchar_t* at, LengthPrefix& prefix)
{
    prefix = LengthPrefix::none;
    if (at[0] == L'I' && at[1] == L'6' && at[2] == L'4') {
        prefix = LengthPrefix::bits64;
        return at + 3;
    }
    if (at[0] == L'l' && at[1] == L'l') {
        prefix = LengthPrefix::bits64;
        return at + 2;
    }
    if (*at == L'l') prefix = LengthPrefix::l;
    if (*at == L'w') prefix = LengthPrefix::w;
    return prefix == LengthPrefix::none ? at : at + 1;
}

// Sets the letter and the kind of argument; false for an unsupported letter or prefix.
constexpr bool SetLetter(wchar_t letter, LengthPrefix prefix, Conversion& conversion)
{
    conversion.letter = letter == L'i' ? L'd' : letter == L'S' ? L's' : letter;
    switch (conversion.letter) {
        case L'd':
        case L'u':
        case L'x':
        case L'X':
            conversion.takes =
                prefix == LengthPrefix::bits64 ? ArgumentKind::integer64 : ArgumentKind::integer32;
            return prefix != LengthPrefix::w;
        case L's':
            conversion.takes = letter == L'S' && prefix == LengthPrefix::none
                                   ? ArgumentKind::narrow_text
                                   : ArgumentKind::wide_text;
            return prefix != LengthPrefix::bits64;
        case L'c':
            conversion.takes = ArgumentKind::integer32;
            break;
        case L'p':
            conversion.takes = ArgumentKind::pointer;
            break;
        default:
            return false;
    }
    return prefix == LengthPrefix::none;
}

constexpr const wchar_t* ReadConversion(const wchar_t* at, Conversion& conversion)
{
    if (*at == L'%') {
        conversion.letter = L'%';
        return at + 1;
    }
    at = ReadFieldSize(ReadFlags(at, conversion), conversion.width);
    if (at && *at == L'.') at = ReadFieldSize(at + 1, conversion.precision);
    if (!at) return nullptr;
    LengthPrefix prefix{};
    at = ReadLengthPrefix(at, prefix);
    return SetLetter(*at, prefix, conversion) ? at + 1 : nullptr;
}
