// A stand-in for the functions by which a program keeps the PC awake, for the Wine check: Wine
// makes no power request. The service's program of the check is linked to this library instead of
// the system's.
//
// It tells what it is asked in power_requests.log beside the executable.

#include <windows.h>

#include <cstdio>
#include <string>

namespace {

void Tell(const std::wstring& line)
{
    wchar_t path[MAX_PATH];
    const std::wstring program(path, GetModuleFileNameW(nullptr, path, MAX_PATH));
    const std::wstring folder = program.substr(0, program.rfind(L'\\') + 1);
    std::FILE* log = _wfopen((folder + L"power_requests.log").c_str(), L"ab");
    if (!log) return;
    std::fprintf(log, "%ls\n", line.c_str());
    std::fclose(log);
}

// A request is an event, so that a handle that is none, or is closed, is told.
bool IsRequest(HANDLE request)
{
    if (WaitForSingleObject(request, 0) != WAIT_FAILED) return true;
    SetLastError(ERROR_INVALID_HANDLE);
    return false;
}

BOOL TellChange(const wchar_t* change, HANDLE request, POWER_REQUEST_TYPE type)
{
    constexpr const wchar_t* kNames[] = {L"display", L"system", L"away", L"execution"};
    if (!IsRequest(request)) return FALSE;
    Tell(std::wstring(change) + L" " + kNames[type]);
    return TRUE;
}

}  // namespace

extern "C" {

HANDLE WINAPI CreateRequest(PREASON_CONTEXT reason)
{
    const bool simple =
        reason->Version == 0 && reason->Flags == POWER_REQUEST_CONTEXT_SIMPLE_STRING;
    Tell(std::wstring(L"create: ") + (simple ? reason->Reason.SimpleReasonString : L"no text"));
    return CreateEventW(nullptr, TRUE, FALSE, nullptr);
}

BOOL WINAPI SetRequest(HANDLE request, POWER_REQUEST_TYPE type)
{
    return TellChange(L"set", request, type);
}

BOOL WINAPI ClearRequest(HANDLE request, POWER_REQUEST_TYPE type)
{
    return TellChange(L"clear", request, type);
}
}
