#include "log/console.h"

#include "platform/file.h"

namespace {

constexpr std::size_t kMaxCharacters = 2048;      // a whole message and the name before it
constexpr std::size_t kMaxBytesPerCharacter = 4;  // of a character in UTF-8

}  // namespace

void PrintPackedToConsole(const wchar_t* format, std::span<const FormatArgument> arguments)
{
    const HANDLE console = GetStdHandle(STD_OUTPUT_HANDLE);
    if (!console || console == INVALID_HANDLE_VALUE) return;
    wchar_t text[kMaxCharacters];
    const FormatResult result = FormatPacked(text, format, arguments);
    char bytes[kMaxCharacters * kMaxBytesPerCharacter];
    const int count = WideCharToMultiByte(CP_UTF8, 0, text, static_cast<int>(result.length), bytes,
                                          sizeof(bytes), nullptr, nullptr);
    DWORD written = 0;
    if (count > 0) WriteFile(console, bytes, static_cast<DWORD>(count), &written, nullptr);
}
