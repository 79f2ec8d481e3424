// The owners and rights of files and folders, whether they are links, and how many names they have.
#pragma once

#include "platform/base.h"

#ifdef _WIN32

#include <sddl.h>

#else

#define FILE_ATTRIBUTE_DIRECTORY 0x00000010u
#define FILE_ATTRIBUTE_REPARSE_POINT 0x00000400u
#define INVALID_FILE_ATTRIBUTES 0xFFFFFFFFu
#define SDDL_REVISION_1 1u

#define OWNER_SECURITY_INFORMATION 0x00000001u
#define DACL_SECURITY_INFORMATION 0x00000004u
#define PROTECTED_DACL_SECURITY_INFORMATION 0x80000000u

using PSECURITY_DESCRIPTOR = PVOID;
using SECURITY_INFORMATION = DWORD;

struct BY_HANDLE_FILE_INFORMATION
{
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD dwVolumeSerialNumber;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD nNumberOfLinks;
    DWORD nFileIndexHigh;
    DWORD nFileIndexLow;
};

extern "C" {

// The attributes of a file or folder, of a link's own where it is one; INVALID_FILE_ATTRIBUTES with
// the last error set on failure.
DWORD WINAPI GetFileAttributesW(LPCWSTR path);

// Turns text into a descriptor, in memory that the caller frees with LocalFree. `size` may be null.
// FALSE with the last error set on failure.
BOOL WINAPI ConvertStringSecurityDescriptorToSecurityDescriptorW(LPCWSTR text, DWORD revision,
                                                                 PSECURITY_DESCRIPTOR* descriptor,
                                                                 ULONG* size);

// The reverse, in memory that the caller frees with LocalFree: the parts that are asked for.
BOOL WINAPI ConvertSecurityDescriptorToStringSecurityDescriptorW(PSECURITY_DESCRIPTOR descriptor,
                                                                 DWORD revision,
                                                                 SECURITY_INFORMATION asked,
                                                                 LPWSTR* text, ULONG* length);

// Copies the parts of a file's or folder's descriptor that are asked for; links are followed.
// `needed` receives its size. FALSE with the last error set on failure, with
// ERROR_INSUFFICIENT_BUFFER where it does not fit.
BOOL WINAPI GetFileSecurityW(LPCWSTR path, SECURITY_INFORMATION asked,
                             PSECURITY_DESCRIPTOR descriptor, DWORD size, LPDWORD needed);

// Replaces the parts of a file's or folder's descriptor. FALSE with the last error set on failure.
BOOL WINAPI SetFileSecurityW(LPCWSTR path, SECURITY_INFORMATION parts,
                             PSECURITY_DESCRIPTOR descriptor);

// What is known of an open file; on the virtual PC its size and the number of its names. FALSE with
// the last error set on failure.
BOOL WINAPI GetFileInformationByHandle(HANDLE file, BY_HANDLE_FILE_INFORMATION* information);
}

#endif
