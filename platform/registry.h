// The registry, in the 64-bit view. Functions return an error code and leave the last error alone.
#pragma once

#include "platform/base.h"

#ifndef _WIN32

using REGSAM = DWORD;

#define HKEY_CLASSES_ROOT \
    (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000000u))))
#define HKEY_CURRENT_USER \
    (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000001u))))
#define HKEY_LOCAL_MACHINE \
    (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000002u))))

#define REG_NONE 0u
#define REG_SZ 1u
#define REG_EXPAND_SZ 2u
#define REG_BINARY 3u
#define REG_DWORD 4u
#define REG_MULTI_SZ 7u
#define REG_QWORD 11u

#define RRF_RT_REG_NONE 0x00000001u
#define RRF_RT_REG_SZ 0x00000002u
#define RRF_RT_REG_EXPAND_SZ 0x00000004u
#define RRF_NOEXPAND 0x10000000u
#define RRF_RT_REG_BINARY 0x00000008u
#define RRF_RT_REG_DWORD 0x00000010u
#define RRF_RT_REG_MULTI_SZ 0x00000020u
#define RRF_RT_REG_QWORD 0x00000040u
#define RRF_RT_DWORD (RRF_RT_REG_BINARY | RRF_RT_REG_DWORD)
#define RRF_RT_ANY 0x0000FFFFu

#define REG_OPTION_NON_VOLATILE 0u
#define REG_OPTION_VOLATILE 1u
#define REG_CREATED_NEW_KEY 1u
#define REG_OPENED_EXISTING_KEY 2u
#define REG_NOTIFY_CHANGE_NAME 0x00000001u
#define REG_NOTIFY_CHANGE_LAST_SET 0x00000004u

#define KEY_QUERY_VALUE 0x0001u
#define KEY_SET_VALUE 0x0002u
#define KEY_CREATE_SUB_KEY 0x0004u
#define KEY_NOTIFY 0x0010u
#define KEY_READ 0x20019u
#define KEY_WRITE 0x20006u
#define KEY_ALL_ACCESS 0xF003Fu

extern "C" {

// Opens a key with the access that the caller may have, creating it and its missing parents. The
// caller closes it with RegCloseKey.
LSTATUS WINAPI RegCreateKeyW(HKEY key, LPCWSTR subKey, HKEY* result);

// The same with the access, and whether the key existed before. A new key is volatile with
// REG_OPTION_VOLATILE, as are the missing parents: it lies in memory, and is gone when the PC
// starts again. ERROR_CHILD_MUST_BE_VOLATILE for a key that is not, below one that is.
LSTATUS WINAPI RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD reserved, LPWSTR type, DWORD options,
                               REGSAM access, LPSECURITY_ATTRIBUTES attributes, HKEY* result,
                               LPDWORD disposition);

// Signals `event` at the next change of the key, once: of its values (REG_NOTIFY_CHANGE_LAST_SET)
// or of the keys in it (REG_NOTIFY_CHANGE_NAME), and when the handle is closed. With `subtree` also
// at changes below it. `asynchronous` is TRUE here: it returns at once. The key needs KEY_NOTIFY.
LSTATUS WINAPI RegNotifyChangeKeyValue(HKEY key, BOOL subtree, DWORD filter, HANDLE event,
                                       BOOL asynchronous);

// Opens an existing key; ERROR_FILE_NOT_FOUND, and a null handle, when it is missing. What the
// handle may be used for is limited to `access`, otherwise to the caller's rights:
// ERROR_ACCESS_DENIED for anything else.
LSTATUS WINAPI RegOpenKeyW(HKEY key, LPCWSTR subKey, HKEY* result);
LSTATUS WINAPI RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, HKEY* result);
LSTATUS WINAPI RegCloseKey(HKEY key);

// Reads a value of one of the types that `flags` (RRF_RT_...) allow. ERROR_UNSUPPORTED_TYPE for
// another type (type, size and data are given all the same), ERROR_FILE_NOT_FOUND for a missing
// value, ERROR_MORE_DATA for data longer than *size bytes: *size is then the size needed, and
// `data` undefined. RRF_RT_DWORD also accepts REG_BINARY of exactly four bytes (otherwise
// ERROR_DATATYPE_MISMATCH). Strings are terminated, and *size, in bytes, includes the terminator; a
// string stored without a byte is read as none.
LSTATUS WINAPI RegGetValueW(HKEY key, LPCWSTR subKey, LPCWSTR value, DWORD flags, LPDWORD type,
                            PVOID data, LPDWORD size);

// Writes `size` bytes under `value`, replacing what was there; a string's size counts its
// terminator.
LSTATUS WINAPI RegSetValueExW(HKEY key, LPCWSTR value, DWORD reserved, DWORD type, const BYTE* data,
                              DWORD size);

// Reads a value of any type, unchanged: a string may lack its terminator. ERROR_FILE_NOT_FOUND for
// a missing value; ERROR_MORE_DATA, with the needed size in *size, when `data` is not null and too
// small.
LSTATUS WINAPI RegQueryValueExW(HKEY key, LPCWSTR value, LPDWORD reserved, LPDWORD type, BYTE* data,
                                LPDWORD size);

// Writes all changes of the hive that the key belongs to on the disk, and returns when they are
// there. Without it the system does so a little later, and a power cut may lose the last of them.
LSTATUS WINAPI RegFlushKey(HKEY key);

// Delete a value; delete a key with everything below it, or, without a `subKey`, everything in and
// below `key`. ERROR_FILE_NOT_FOUND when it does not exist.
LSTATUS WINAPI RegDeleteValueW(HKEY key, LPCWSTR value);
LSTATUS WINAPI RegDeleteTreeW(HKEY key, LPCWSTR subKey);
}

#endif
