// Answers the message box of a service's program, for the Wine check. Usage: answer_box SERVICE.
// Meanwhile it has the service open, so that a removal only marks it for deletion. Prints
// "waiting", then what the box with the service's name says.

#include <windows.h>

#include <cstdio>

namespace {

constexpr int kTries = 1200;
constexpr DWORD kPauseMs = 50;

// Prints the text of each part of the box but its button.
BOOL CALLBACK PrintText(HWND part, LPARAM)
{
    wchar_t kind[32] = {};
    wchar_t text[256] = {};
    GetClassNameW(part, kind, 32);
    GetWindowTextW(part, text, 256);
    if (lstrcmpiW(kind, L"Static") == 0 && text[0]) std::printf("%ls\n", text);
    return TRUE;
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc != 2) return 1;
    const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    const SC_HANDLE service = OpenServiceW(manager, argv[1], SERVICE_QUERY_STATUS);
    if (!service) return 2;
    std::puts("waiting");
    std::fflush(stdout);
    HWND box = nullptr;
    for (int tries = 0; !box && tries < kTries; ++tries) {
        Sleep(kPauseMs);
        box = FindWindowW(L"#32770", argv[1]);
    }
    if (box) {
        Sleep(kPauseMs);
        EnumChildWindows(box, PrintText, 0);
        PostMessageW(box, WM_COMMAND, IDOK, 0);
    }
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
    return box ? 0 : 3;
}
