// Files, folders, pipes and the standard output.
#pragma once

#include "platform/base.h"

#ifdef _WIN32

#include <knownfolders.h>
#include <shlobj.h>

#else

#define GENERIC_READ 0x80000000u
#define GENERIC_WRITE 0x40000000u
#define FILE_SHARE_READ 0x00000001u
#define FILE_SHARE_WRITE 0x00000002u
#define CREATE_ALWAYS 2u
#define OPEN_EXISTING 3u
#define OPEN_ALWAYS 4u
#define FILE_ATTRIBUTE_NORMAL 0x00000080u
#define SECURITY_SQOS_PRESENT 0x00100000u
#define SECURITY_IDENTIFICATION 0x00010000u
#define SECURITY_IMPERSONATION 0x00020000u
#define PIPE_READMODE_BYTE 0x00000000u
#define PIPE_NOWAIT 0x00000001u
#define FILE_BEGIN 0u
#define FILE_CURRENT 1u
#define FILE_END 2u
#define INVALID_SET_FILE_POINTER 0xFFFFFFFFu
#define STD_OUTPUT_HANDLE (static_cast<DWORD>(-11))
#define CP_UTF8 65001u

using REFKNOWNFOLDERID = const GUID&;
inline constexpr GUID FOLDERID_ProgramData{
    0x62AB5D82, 0xFDC1, 0x4DC3, {0xA9, 0xDD, 0x07, 0x0D, 0x1D, 0x49, 0x5D, 0x97}};
#define KF_FLAG_CREATE 0x00008000

struct OVERLAPPED;

extern "C" {

// Opens a file, or a pipe (\\.\pipe\NAME) that has a listener. Returns a handle for CloseHandle, or
// INVALID_HANDLE_VALUE with the last error set: ERROR_FILE_NOT_FOUND for a missing file or
// listener, ERROR_PATH_NOT_FOUND for a missing folder. OPEN_ALWAYS creates a missing file, and sets
// ERROR_ALREADY_EXISTS for an existing one. Links are followed. ERROR_ACCESS_DENIED where the
// rights of the file, or of the folder of a new one, say so, and 32 where another program has it
// open and one of the two excludes the other by its share mode. The listener of a pipe may act in
// the caller's name unless the flags limit it.
HANDLE WINAPI CreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES attributes,
                          DWORD disposition, DWORD flags, HANDLE templateFile);

// Writes at the handle's position and advances it. *written receives the number of bytes written,
// fewer on a full disk and, with PIPE_NOWAIT, to a pipe without room for all: there a byte pipe
// takes what fits, and a message pipe nothing, which succeeds. FALSE with the last error set on
// failure; ERROR_NO_DATA or ERROR_BROKEN_PIPE when a pipe's listener has gone. Synchronous:
// `overlapped` is null.
BOOL WINAPI WriteFile(HANDLE file, LPCVOID data, DWORD size, LPDWORD written,
                      OVERLAPPED* overlapped);

// Reads at the position of a file that is open for reading, and advances it. *read receives the
// number of bytes, 0 at the end. FALSE with the last error set on failure. Synchronous:
// `overlapped` is null.
BOOL WINAPI ReadFile(HANDLE file, LPVOID data, DWORD size, LPDWORD read, OVERLAPPED* overlapped);

// Makes the calls on a pipe's handle wait or, with PIPE_NOWAIT, return at once. The handle must be
// open for writing. `count` and `timeout` are null for a pipe of this PC.
BOOL WINAPI SetNamedPipeHandleState(HANDLE pipe, LPDWORD mode, LPDWORD count, LPDWORD timeout);

// Moves the position by `distance` bytes from `method` (FILE_BEGIN, FILE_CURRENT, FILE_END) and
// returns the low 32 bits of the new one; INVALID_SET_FILE_POINTER with the last error set on
// failure. With `distanceHigh` null the distance is 32 bits, signed.
DWORD WINAPI SetFilePointer(HANDLE file, LONG distance, LONG* distanceHigh, DWORD method);

BOOL WINAPI FlushFileBuffers(HANDLE file);

// Creates a folder. FALSE with ERROR_ALREADY_EXISTS for an existing folder, with
// ERROR_PATH_NOT_FOUND when its parent is missing.
BOOL WINAPI CreateDirectoryW(LPCWSTR path, LPSECURITY_ATTRIBUTES attributes);

// A known folder's full path without a closing backslash, in memory that the caller frees with
// CoTaskMemFree, also after a failure. Only FOLDERID_ProgramData is known.
HRESULT WINAPI SHGetKnownFolderPath(REFKNOWNFOLDERID folder, DWORD flags, HANDLE token,
                                    PWSTR* path);

// The process's standard output, which the caller does not close: null when it has none,
// INVALID_HANDLE_VALUE on failure.
HANDLE WINAPI GetStdHandle(DWORD which);

// Converts text to bytes, here UTF-8. With `wideCount` -1, everything up to and including the
// terminator. Returns the number of bytes written or, with `bytesCount` 0, needed; 0 with the last
// error set on failure.
int WINAPI WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int wideCount, LPSTR bytes,
                               int bytesCount, LPCSTR defaultChar, BOOL* usedDefault);
}

#endif
