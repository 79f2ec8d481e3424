// Makes the trace pipe's name before the service does, and does not read, for the Wine check.
// Usage: deaf_listener FILE. Prints "listening"; after the file is there, reads what the pipe holds
// and prints whether it was full.

#include <windows.h>

#include <cstdio>
#include <string>

namespace {

constexpr DWORD kSize = 4096;
constexpr int kTries = 40'000;  // more than an hour
constexpr DWORD kPauseMs = 100;
// No line of the log is longer, and none is begun that does not fit.
constexpr std::size_t kLongestLine = 1100;

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc != 2) return 1;
    const HANDLE pipe = CreateNamedPipeW(LR"(\\.\pipe\ZYTA_HOLV_IP1)", PIPE_ACCESS_INBOUND,
                                         PIPE_TYPE_BYTE | PIPE_WAIT, 1, kSize, kSize, 0, nullptr);
    if (pipe == INVALID_HANDLE_VALUE) return 2;
    std::puts("listening");
    std::fflush(stdout);
    if (!ConnectNamedPipe(pipe, nullptr) && GetLastError() != ERROR_PIPE_CONNECTED) return 3;
    for (int tries = 0; GetFileAttributesW(argv[1]) == INVALID_FILE_ATTRIBUTES; ++tries) {
        if (tries == kTries) return 4;
        Sleep(kPauseMs);
    }
    std::string heard;
    char bytes[kSize];
    DWORD read = 0;
    while (ReadFile(pipe, bytes, kSize, &read, nullptr) && read > 0) heard.append(bytes, read);
    std::printf("%s, the first line %s\n",
                heard.size() + kLongestLine > kSize ? "full" : "not full",
                heard.find('\n') < kLongestLine ? "whole" : "broken");
    std::fprintf(stderr, "%zu bytes\n", heard.size());
    CloseHandle(pipe);
    return 0;
}
