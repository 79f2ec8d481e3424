// A helper program for the Wine check: tells how it was started in a file beside itself, and waits
// to be ended, a minute at most.

#include <windows.h>

#include <cstdio>
#include <string>

int wmain()
{
    wchar_t path[MAX_PATH];
    const std::wstring program(path, GetModuleFileNameW(nullptr, path, MAX_PATH));
    std::FILE* told = _wfopen((program + L".started").c_str(), L"ab");
    if (!told) return 1;
    std::fprintf(told, "%ls\n", GetCommandLineW());
    std::fclose(told);
    Sleep(60'000);
    return 0;
}
