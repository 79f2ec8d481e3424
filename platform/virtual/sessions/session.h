// The user at the console, and how programs are started for that user.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/session.h"
#include "platform/virtual/base/time.h"

namespace virtual_pc {

class Machine;

// The PC starts at its logon screen: there is a console session, and no user is logged on.
class Session
{
public:
    explicit Session(Machine& machine) : m_machine(machine) {}

    std::optional<DWORD> console() const { return m_console; }
    const std::wstring& user() const { return m_user; }  // empty when no user is logged on
    bool locked() const { return m_locked; }
    // The user of a session, at the console or not; nothing when there is no such session.
    std::optional<std::wstring> UserOf(DWORD session) const;

    // Each is announced to the services, and does nothing when the session is in that state
    // already. Logging on while another user is logged on logs that user off first.
    void Logon(std::wstring_view user);
    // Switches the console to `user`, to that user's session where there is one. The previous
    // user's session stays, with its programs.
    void Switch(std::wstring_view user);
    // Ends the programs of the session; the next logon screen is a new session.
    void Logoff();
    void Lock();
    void Unlock();
    // Takes the session off the console, which has none until the next logon, as while users are
    // switched.
    void Disconnect();
    // The PC was switched off: no user is logged on when it starts again.
    void SwitchOff();

    // Puts a program on the disk that runs for `span`, or until it is ended when that is empty.
    void InstallProgram(std::wstring_view path, std::optional<Duration> span, int exit_code);

    // --- The rights of the service's account ---
    bool service_is_local_system = true;
    bool service_has_debug_privilege = true;

private:
    // A session that is not at the console.
    struct Background
    {
        DWORD number;
        std::wstring user;
        bool locked;
    };

    void Announce(DWORD event, const wchar_t* what);
    bool Return(std::wstring_view user);

    Machine& m_machine;
    std::optional<DWORD> m_console = 1;
    DWORD m_next = 2;
    std::wstring m_user;
    bool m_locked = false;
    std::vector<Background> m_background;
};

// The environment of a user, or of the system alone when it is empty.
std::vector<std::wstring> EnvironmentOf(std::wstring_view user);

}  // namespace virtual_pc
