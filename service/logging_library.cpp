#include "service/logging_library.h"

#include <string>

#include "platform/module.h"
#include "platform/owned.h"
#include "process/user_process.h"

namespace {

// Used on ServiceMain's thread only.
OwnedLibrary g_library;

// The library's function of this name; null when there is none.
template <class Function>
Function Find(const char* name)
{
    // Cast by way of void(*)(), the one function type that compilers let any other be cast from
    // without a warning.
    const auto found = reinterpret_cast<void (*)()>(GetProcAddress(g_library.Get(), name));
    return reinterpret_cast<Function>(found);
}

}  // namespace

// The library is loaded by its full path, so that no other library of that name is loaded instead.
// It is loaded at run time rather than linked, so that the installation switches work before it is
// installed.
void StartLoggingLibrary()
{
    wchar_t folder[MAX_PATH];
    if (!GetModuleFilePath(folder, MAX_PATH)) return;
    g_library.Reset(LoadLibraryW((std::wstring(folder) + LR"(\Vexlog.dll)").c_str()));
    if (!g_library) return;
    using StartLogger = void(WINAPI*)(const wchar_t* name, int);
    if (const auto start = Find<StartLogger>("StartLogger")) start(L"HOLVLog", 1);
}

void StopLoggingLibrary()
{
    if (!g_library) return;
    using StopLogger = void(WINAPI*)();
    if (const auto stop = Find<StopLogger>("StopLogger")) stop();
    g_library.Reset();
}
