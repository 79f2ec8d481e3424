// A stand-in for the logging library that may lie beside the service, for the Wine check: tells in
// a file beside itself what it is asked, and when it is freed.

#include <windows.h>

#include <cstdio>
#include <string>

namespace {

void Tell(const std::wstring& line)
{
    wchar_t path[MAX_PATH];
    HMODULE self = nullptr;
    GetModuleHandleExW(
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
        reinterpret_cast<const wchar_t*>(&Tell), &self);
    const std::wstring library(path, GetModuleFileNameW(self, path, MAX_PATH));
    std::FILE* told = _wfopen((library + L".told").c_str(), L"ab");
    if (!told) return;
    std::fprintf(told, "%ls\n", line.c_str());
    std::fclose(told);
}

}  // namespace

extern "C" {

__declspec(dllexport) void WINAPI StartLogger(const wchar_t* name, int number)
{
    Tell(L"start " + std::wstring(name) + L" " + std::to_wstring(number));
}

__declspec(dllexport) void WINAPI StopLogger() { Tell(L"stop"); }

}  // extern "C"

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID ends)
{
    if (reason == DLL_PROCESS_DETACH && !ends) Tell(L"freed");
    return TRUE;
}
