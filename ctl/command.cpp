#include "ctl/command.h"

#include <algorithm>

#include "platform/file.h"

std::string ToUtf8Bytes(std::wstring_view text)
{
    constexpr std::size_t kBytesMost = 4;  // of a character
    std::string bytes(text.size() * kBytesMost, '\0');
    const int count =
        WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(),
                            static_cast<int>(bytes.size()), nullptr, nullptr);
    bytes.resize(static_cast<std::size_t>(std::max(count, 0)));
    return bytes;
}

void Print(std::wstring_view text)
{
    const HANDLE console = GetStdHandle(STD_OUTPUT_HANDLE);
    if (!console || console == INVALID_HANDLE_VALUE || text.empty()) return;
    const std::string bytes = ToUtf8Bytes(text);
    DWORD written = 0;
    WriteFile(console, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

int EndWith(ExitCode code, std::wstring_view line)
{
    Print(std::wstring(line) + L"\n");
    return code;
}

long NumberIn(std::wstring_view text)
{
    const bool hexadecimal = text.starts_with(L"0x");
    if (hexadecimal) text.remove_prefix(2);
    constexpr std::size_t kMostDigits = 7;
    if (text.empty() || text.size() > kMostDigits) return -1;
    constexpr std::wstring_view kDigits = L"0123456789abcdef";
    const std::wstring_view digits = kDigits.substr(0, hexadecimal ? 16 : 10);
    long number = 0;
    for (const wchar_t digit : text) {
        const std::size_t value = digits.find(digit);
        if (value == digits.npos) return -1;
        number = number * static_cast<long>(digits.size()) + static_cast<long>(value);
    }
    return number;
}
