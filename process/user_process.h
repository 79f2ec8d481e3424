// A program in the session of the user at the console.
#pragma once

#include <string>

#include "platform/session.h"

// Represents at most one started program, and owns its process and thread handles. The destructor
// closes them and does not end the program. One thread at a time.
class CUserProcess
{
public:
    CUserProcess() = default;
    virtual ~CUserProcess();
    CUserProcess(const CUserProcess&) = delete;
    CUserProcess& operator=(const CUserProcess&) = delete;

    // Starts the program at `path`, hidden, on the console user's desktop, with that user's rights
    // and environment, and waits up to `waitSeconds` for its end; 0 does not wait. FALSE, with the
    // last error set, when it was not started.
    BOOL ExecuteProcessAsUserByHandle(const std::wstring& path, const std::wstring& arguments,
                                      DWORD waitSeconds);

    // Whether it holds a process, which may have ended.
    BOOL IsLaunched() const { return m_processInformation.hProcess != nullptr; }

    // Terminates the program; no process is held afterwards. TRUE also when none was held; FALSE
    // when it could not be terminated, for instance because it has already ended.
    BOOL QuitProcess();

    // Terminates a process and closes its handle in every case. Returns 0, or which step failed: -1
    // opening the service's own token, -2 and -3 enabling the privilege to end others' processes,
    // -4 a null handle, -5 terminating. The privilege stays enabled.
    static LONG QuitProcess(HANDLE process);

private:
    PROCESS_INFORMATION m_processInformation{};
    STARTUPINFOW m_startupInformation{};
};

// Writes the folder of the service's executable, without a backslash at its end, into `buffer` of
// `size` characters, and returns `buffer`. A path that does not fit is cut off before its last
// backslash is searched for. Null on failure.
LPWSTR GetModuleFilePath(LPWSTR buffer, DWORD size);
