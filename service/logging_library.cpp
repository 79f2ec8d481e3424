#include "service/logging_library.h"

#include <string>

#include "platform/module.h"
#include "platform/owned.h"
#include "process/user_process.h"

namespace {

// Only ServiceMain's thread touches it.
OwnedLibrary g_library;

// A function of the library; null when it has none of that name.
template <class Function>
Function Find(const char* name)
{
    // By way of the one type of function that any other may be cast from.
    const auto found = reinterpret_cast<void (*)()>(GetProcAddress(g_library.Get(), name));
    return reinterpret_cast<Function>(found);
}

}  // namespace

// By its full path, so that nobody else's library of that name is loaded; and not linked to, so
// that the installation's switches work before the library is there.
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
