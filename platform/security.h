// The rights that files and folders are made with, and whether they are links.
#pragma once

#include "platform/base.h"

#ifdef _WIN32

#include <sddl.h>

#else

#define FILE_ATTRIBUTE_DIRECTORY 0x00000010u
#define FILE_ATTRIBUTE_REPARSE_POINT 0x00000400u
#define INVALID_FILE_ATTRIBUTES 0xFFFFFFFFu
#define SDDL_REVISION_1 1u

using PSECURITY_DESCRIPTOR = PVOID;

extern "C" {

// The attributes of a file or folder, of a link's own where it is one; INVALID_FILE_ATTRIBUTES with
// the last error set on failure.
DWORD WINAPI GetFileAttributesW(LPCWSTR path);

// Turns text into a descriptor, in memory that the caller frees with LocalFree. `size` may be null.
// FALSE with the last error set on failure.
BOOL WINAPI ConvertStringSecurityDescriptorToSecurityDescriptorW(LPCWSTR text, DWORD revision,
                                                                 PSECURITY_DESCRIPTOR* descriptor,
                                                                 ULONG* size);
}

#endif
