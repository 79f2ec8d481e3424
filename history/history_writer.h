// Writes the history: a line of JSON for each change.
#pragma once

#include <string>

#include "json/utc.h"
#include "platform/owned.h"

// Used by one thread at a time. What cannot be written is left out, and said once in the log.
class HistoryWriter
{
public:
    // Appends a line to the file of the day that `utc` lies in.
    void Append(UtcTime utc, const std::wstring& json);
    void Close();

private:
    bool Open(UtcTime utc);
    // Whether the open file is what an earlier year has left.
    bool IsOfAnotherYear(UtcTime utc) const;
    // Ends a line that a power cut has torn, so that the next one can be read.
    void EndTornLine() const;
    void Report(DWORD error);

    OwnedFile m_file;
    UtcTime m_day = 0;  // of the open file, in days
    DWORD m_size = 0;   // in bytes
    bool m_failure_logged = false;
};
