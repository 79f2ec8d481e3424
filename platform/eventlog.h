// The Application event log.
#pragma once

#include "platform/base.h"

#ifndef _WIN32

#define EVENTLOG_SUCCESS 0x0000
#define EVENTLOG_ERROR_TYPE 0x0001
#define EVENTLOG_WARNING_TYPE 0x0002
#define EVENTLOG_INFORMATION_TYPE 0x0004

extern "C" {

// Opens an event source on this machine (null server), registered or not. Returns a handle for
// DeregisterEventSource, or null with the last error set.
HANDLE WINAPI RegisterEventSourceW(LPCWSTR server, LPCWSTR source);
BOOL WINAPI DeregisterEventSource(HANDLE log);

// Reports one event with `stringCount` insertion strings and `dataSize` bytes of data. FALSE with
// the last error set on failure: 1734 for a string of more than 31,839 characters or more than
// 61,440 bytes of data.
BOOL WINAPI ReportEventW(HANDLE log, WORD type, WORD category, DWORD eventId, PSID user,
                         WORD stringCount, DWORD dataSize, LPCWSTR* strings, LPVOID data);
}

#endif
