// Thread message queues, and message boxes.
#pragma once

#include "platform/base.h"

#ifndef _WIN32

struct POINT
{
    LONG x, y;
};

struct MSG
{
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    DWORD time;
    POINT pt;
};

#define WM_QUIT 0x0012
#define WM_USER 0x0400

#define PM_NOREMOVE 0x0000u
#define PM_REMOVE 0x0001u

#define MB_OK 0x00000000u
#define IDOK 1

extern "C" {

// Takes the next message from the calling thread's queue, waiting without limit. Returns 0 for
// WM_QUIT, a positive number for any other message, -1 with the last error set on failure. A null
// `window` and 0, 0 accept every message; other messages stay in the queue, but for WM_QUIT.
BOOL WINAPI GetMessageW(MSG* message, HWND window, UINT first, UINT last);
BOOL WINAPI TranslateMessage(const MSG* message);
LRESULT WINAPI DispatchMessageW(const MSG* message);

// Checks for a message, which PM_NOREMOVE leaves in the queue and PM_REMOVE takes out of it. Never
// waits.
BOOL WINAPI PeekMessageW(MSG* message, HWND window, UINT first, UINT last, UINT remove);

// Posts a message to a thread's queue and returns at once. FALSE with ERROR_INVALID_THREAD_ID when
// there is no such thread or it has no queue yet: the first message function that a thread calls
// creates its queue. 1816 when the queue has 10,000 messages.
BOOL WINAPI PostThreadMessageW(DWORD threadId, UINT message, WPARAM wParam, LPARAM lParam);

// Shows a text and waits until the user closes it: IDOK then, 0 on failure.
int WINAPI MessageBoxW(HWND owner, LPCWSTR text, LPCWSTR caption, UINT type);
}

#endif
