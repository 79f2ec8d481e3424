// A program in the session of the user at the console.
#pragma once

#include <string>

#include "platform/session.h"

// Stands for at most one started program, and owns its process and thread handles. Destroying it
// closes them and does not end the program. One thread at a time.
class CUserProcess
{
public:
    CUserProcess() = default;
    virtual ~CUserProcess();
    CUserProcess(const CUserProcess&) = delete;
    CUserProcess& operator=(const CUserProcess&) = delete;

    // Starts the program at `path`, hidden, on the console user's desktop, with his rights and his
    // environment, and waits up to `waitSeconds` for its end; 0 does not wait. FALSE when it was
    // not started: the last error says why.
    BOOL ExecuteProcessAsUserByHandle(const std::wstring& path, const std::wstring& arguments,
                                      DWORD waitSeconds);

    // Whether it holds a process, which may have ended.
    BOOL IsLaunched() const { return m_processInformation.hProcess != nullptr; }

    // Ends the held process, and holds none any more. TRUE also when there was none; FALSE when it
    // could not be ended, as when it has ended by itself.
    BOOL QuitProcess();

    // Ends a process and closes its handle, whatever comes of it. 0, or what failed: -1 the
    // service's own token, -2 and -3 the privilege to end others' processes, -4 there is no handle,
    // -5 the ending. The privilege stays enabled.
    static LONG QuitProcess(HANDLE process);

private:
    PROCESS_INFORMATION m_processInformation{};
    STARTUPINFOW m_startupInformation{};
};

// The folder of the service's executable, without a backslash at its end, in `buffer` of `size`
// characters, which it returns. A path that does not fit is cut off before its last backslash is
// looked for. Null on failure.
LPWSTR GetModuleFilePath(LPWSTR buffer, DWORD size);
