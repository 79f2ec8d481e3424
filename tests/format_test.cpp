// The formatter: the same texts on both machines, and formats that compile only with matching
// arguments.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <type_traits>

#include "log/event_source.h"
#include "log/log.h"

namespace {

template <class... Args>
std::wstring Formatted(FormatFor<Args...> format, const Args&... args)
{
    wchar_t text[256];
    const FormatResult result = FormatText(text, format, args...);
    EXPECT_TRUE(result.fits);
    EXPECT_EQ(text[result.length], L'\0');
    return {text, result.length};
}

TEST(Format, ConversionsReadAsTheWindowsRuntimeWritesThem)
{
    const std::atomic<DWORD> setting{1320};
    const wchar_t unterminated[] = {L'a', L'b', L'c'};
    const wchar_t* const no_text = nullptr;
    const char* const no_bytes = nullptr;
    const auto pointer = reinterpret_cast<void*>(std::uintptr_t{0x7FFA1234BCDE});
    const std::pair<std::wstring, const wchar_t*> cases[] = {
        {Formatted(L"no arguments, 100%%\n"), L"no arguments, 100%\n"},
        {Formatted(L""), L""},
        // 32 bits, whatever the type that holds them
        {Formatted(L"%d %i %ld", -1, INT32_MIN, LONG{7}), L"-1 -2147483648 7"},
        {Formatted(L"%d %d", DWORD{0xFFFFFFFF}, WORD{0xFFFF}), L"-1 65535"},
        {Formatted(L"%u %lu %u", -1, DWORD{0}, BYTE{200}), L"4294967295 0 200"},
        {Formatted(L"0x%x 0x%lX", E_FAIL, SHORT{-2}), L"0x80004005 0xFFFFFFFE"},
        {Formatted(L"%u", setting), L"1320"},
        // 64 bits
        {Formatted(L"%I64d %lld", INT64_MIN, 5LL), L"-9223372036854775808 5"},
        {Formatted(L"%I64u %llu", UINT64_MAX, 0ULL), L"18446744073709551615 0"},
        {Formatted(L"%llx %I64X", 0xFEDCBA9876543210, 0xABCULL), L"fedcba9876543210 ABC"},
        // flags, width, precision
        {Formatted(L"%02u:%02u:%03u %04u", 7, 12, 5, 2026), L"07:12:005 2026"},
        {Formatted(L"[%5d][%-5d][%05d][%-05d]", -42, -42, -42, -42),
         L"[  -42][-42  ][-0042][-42  ]"},
        {Formatted(L"%+d %+d % d %+u", 1, -1, 1, 1u), L"+1 -1  1 1"},
        {Formatted(L"%#x %#X %#x [%#06x]", 255, 1, 0, 10), L"0xff 0X1 0 [0x000a]"},
        {Formatted(L"[%.4d][%8.4d][%08.4d][%.0d][%03.0d][%2d]", -7, 7, 7, 0, 7, 12345),
         L"[-0007][    0007][    0007][][  7][12345]"},
        // text
        {Formatted(L"%s|%ls|%wS|%ws|%S", L"one", L"two", L"three", L"four", "five\xE9"),
         L"one|two|three|four|five\x00E9"},
        {Formatted(L"[%5s][%-5s][%.2s][%.0s][%5.1S]", L"abc", L"abc", L"abc", L"abc", "abc"),
         L"[  abc][abc  ][ab][][    a]"},
        {Formatted(L"%.3s", static_cast<const wchar_t*>(unterminated)), L"abc"},
        {Formatted(L"%s %S", no_text, no_bytes), L"(null) (null)"},
        {Formatted(L"[%c%c][%3c]", L'x', 'y', 0x416), L"[xy][  \x0416]"},
        {Formatted(L"0x%p %p", pointer, nullptr), L"0x00007FFA1234BCDE 0000000000000000"},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(text, expected);
}

TEST(Format, TextThatDoesNotFitIsCutAndSaysSo)
{
    const std::tuple<std::size_t, const wchar_t*, bool> cases[] = {
        {8, L"ab   -7", true}, {7, L"ab   -", false}, {4, L"ab ", false},
        {3, L"ab", false},     {1, L"", false},       {0, L"", false}};
    for (const auto& [size, stored, fits] : cases) {
        wchar_t text[] = L"#########";
        const FormatResult result = FormatText(std::span(text, size), L"%s%S%5d", L"a", "b", -7);
        EXPECT_EQ(result.fits, fits) << size;
        EXPECT_EQ(result.length, std::wcslen(stored)) << size;
        if (size > 0) {
            EXPECT_EQ(std::wstring(text), stored) << size;
        }
        EXPECT_EQ(text[size], L'#') << "written behind the buffer of " << size;
    }
}

enum Plain
{
    zero,
};

TEST(Format, OnlyFittingArgumentsGoWithAFormat)
{
    EXPECT_TRUE((FormatMatches<const wchar_t*, wchar_t[8], wchar_t*>(L"%s %s %wS")));
    EXPECT_TRUE((FormatMatches<HANDLE, HKEY, const char*, std::nullptr_t>(L"%p %p %p %p")));
    EXPECT_TRUE((FormatMatches<std::atomic<DWORD>, HRESULT, BOOL, bool>(L"%u 0x%x %d %d")));
    const bool wrong[] = {
        FormatMatches<>(L"%d"),
        FormatMatches<int>(L"none"),
        FormatMatches<int, int>(L"%d %%"),
        FormatMatches<const char*>(L"%s"),
        FormatMatches<const wchar_t*>(L"%S"),
        FormatMatches<int>(L"%s"),
        FormatMatches<const wchar_t*>(L"%d"),
        FormatMatches<ULONGLONG>(L"%u"),
        FormatMatches<DWORD>(L"%I64u"),
        FormatMatches<int>(L"%p"),
        FormatMatches<void (*)()>(L"%p"),
        FormatMatches<Plain>(L"%d"),
        FormatMatches<double>(L"%d"),
        FormatMatches<double>(L"%f"),
        FormatMatches<std::wstring>(L"%s"),
        FormatMatches<int, int>(L"%*d"),
        FormatMatches<int>(L"%wd"),
        FormatMatches<int>(L"%n"),
        FormatMatches<int>(L"%1024d"),
        FormatMatches<>(L"cut off %"),
    };
    for (std::size_t i = 0; i < std::size(wrong); ++i) EXPECT_FALSE(wrong[i]) << "row " << i;
}

// --- What builds ---

// A format as a template's argument.
template <std::size_t size>
struct Literal
{
    consteval Literal(const wchar_t (&characters)[size]) { std::copy_n(characters, size, text); }
    wchar_t text[size];
};

// Whether a call with this format and these arguments builds: whether its format can be made while
// the program is compiled.
template <Literal format, class... Args>
constexpr bool kBuilds = requires
{
    typename std::bool_constant<(FormatFor<Args...>(format.text), true)>;
};

static_assert(kBuilds<L"%S at %I64u, hr=0x%x\n", const char*, ULONGLONG, HRESULT>);
static_assert(!kBuilds<L"%s at %I64u, hr=0x%x\n", const char*, ULONGLONG, HRESULT>,
              "an 8-bit string for a wide one");
static_assert(!kBuilds<L"%S at %u, hr=0x%x\n", const char*, ULONGLONG, HRESULT>, "64 bits for 32");
static_assert(!kBuilds<L"%S at %I64u, hr=0x%x\n", const char*, ULONGLONG>, "one too few");
static_assert(!kBuilds<L"%S at %I64u\n", const char*, ULONGLONG, HRESULT>, "one too many");

// Log takes no other kind of format.
static_assert(std::is_same_v<decltype(&Log<int>),
                             void (*)(DWORD, const wchar_t*, FormatFor<int>, const int&)>);
static_assert(std::is_same_v<decltype(&LogEvent<int>), void (*)(FormatFor<int>, const int&)>);

}  // namespace
