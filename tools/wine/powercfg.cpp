// A stand-in for the program that lists the power requests, for the Wine check: lists a driver's
// and a program's, and tells in a file beside itself what it is asked.

#include <windows.h>

#include <cstdio>
#include <string>

int wmain(int argc, wchar_t** argv)
{
    wchar_t path[MAX_PATH];
    const std::wstring program(path, GetModuleFileNameW(nullptr, path, MAX_PATH));
    std::FILE* told = _wfopen((program + L".told").c_str(), L"ab");
    if (!told) return 1;
    std::fprintf(told, "%ls\n", argc == 2 ? argv[1] : L"not one argument");
    std::fclose(told);
    std::puts("DISPLAY:\nNone.\n");
    std::puts(
        "SYSTEM:\n[DRIVER] Wine Audio Device\nAn audio stream is in use.\n"
        "[PROCESS] \\Device\\Disk\\Music.exe\n");
    std::puts("AWAYMODE:\nNone.\n");
    return 0;
}
