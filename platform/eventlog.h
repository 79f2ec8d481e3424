// The Application event log.
#pragma once

#include "platform/base.h"

#ifndef _WIN32

#define EVENTLOG_SUCCESS 0x0000
#define EVENTLOG_ERROR_TYPE 0x0001
#define EVENTLOG_WARNING_TYPE 0x0002
#define EVENTLOG_INFORMATION_TYPE 0x0004

#define EVENTLOG_SEQUENTIAL_READ 0x0001
#define EVENTLOG_FORWARDS_READ 0x0004

#define ERROR_HANDLE_EOF 38

// A record as ReadEventLogW gives it. Behind it stand the source's and the computer's name, the
// strings and the data, and at the record's end its length once more. Offsets count from the
// record's beginning, lengths in bytes, and times in seconds since 1970, UTC.
struct EVENTLOGRECORD
{
    DWORD Length;
    DWORD Reserved;
    DWORD RecordNumber;
    DWORD TimeGenerated;
    DWORD TimeWritten;
    DWORD EventID;
    WORD EventType;
    WORD NumStrings;
    WORD EventCategory;
    WORD ReservedFlags;
    DWORD ClosingRecordNumber;
    DWORD StringOffset;
    DWORD UserSidLength;
    DWORD UserSidOffset;
    DWORD DataLength;
    DWORD DataOffset;
};
static_assert(sizeof(EVENTLOGRECORD) == 56);

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

// Opens a log of this machine (null server) for reading; a name that is none opens the Application
// log. Returns a handle for CloseEventLog, or null with the last error set.
HANDLE WINAPI OpenEventLogW(LPCWSTR server, LPCWSTR name);
BOOL WINAPI CloseEventLog(HANDLE log);

// Reads as many whole records as `buffer` takes, from where the last read of the handle ended.
// FALSE with the last error set on failure: ERROR_HANDLE_EOF behind the last record, and
// ERROR_INSUFFICIENT_BUFFER, with what the next record needs in `needed`, when not one has room.
// `offset` does not count for sequential reads.
BOOL WINAPI ReadEventLogW(HANDLE log, DWORD flags, DWORD offset, LPVOID buffer, DWORD size,
                          DWORD* read, DWORD* needed);
}

#endif
