#include "platform/virtual/sessions/session.h"

#include <algorithm>
#include <utility>

#include "platform/kernel.h"
#include "platform/virtual/announcer/announcer.h"
#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/processes/programs.h"

namespace virtual_pc {

// The journal's "session": what, the user's name, and the session's number.
void Session::Announce(DWORD event, const wchar_t* what)
{
    m_machine.journal.Record(
        "session", {{"what", what}, {"user", m_user}, {"session", std::uint64_t{*m_console}}});
    m_machine.announcer.SessionEvent(event, *m_console);
}

void Session::Logon(std::wstring_view user)
{
    const Hold hold(m_machine);
    if (m_user == user) return;
    if (!m_user.empty()) Logoff();
    if (Return(user)) return;
    if (!m_console) {
        m_console = m_next++;
        Announce(WTS_CONSOLE_CONNECT, L"connect");
    }
    m_user = user;
    Announce(WTS_SESSION_LOGON, L"logon");
}

// Connects the console to the user's session in the background; false when there is none.
bool Session::Return(std::wstring_view user)
{
    const auto known = std::ranges::find(m_background, user, &Background::user);
    if (known == m_background.end()) return false;
    m_console = known->number;
    m_user = known->user;
    m_locked = known->locked;
    m_background.erase(known);
    Announce(WTS_CONSOLE_CONNECT, L"connect");
    return true;
}

void Session::Switch(std::wstring_view user)
{
    const Hold hold(m_machine);
    if (m_user == user) return;
    if (!m_user.empty()) {
        Announce(WTS_CONSOLE_DISCONNECT, L"disconnect");
        m_background.push_back({*m_console, std::exchange(m_user, {}), m_locked});
        m_console.reset();
        m_locked = false;
    }
    Logon(user);
}

std::optional<std::wstring> Session::UserOf(DWORD session) const
{
    const Hold hold(m_machine);
    if (m_console == session) return m_user;
    const auto known = std::ranges::find(m_background, session, &Background::number);
    if (known == m_background.end()) return std::nullopt;
    return known->user;
}

void Session::Logoff()
{
    const Hold hold(m_machine);
    if (m_user.empty()) return;
    for (const auto& process : m_machine.programs.processes()) {
        if (process->launch && process->launch->session == *m_console) process->Terminate(1);
    }
    Announce(WTS_SESSION_LOGOFF, L"logoff");
    m_user.clear();
    m_locked = false;
    m_console = m_next++;
    Announce(WTS_CONSOLE_CONNECT, L"connect");
}

void Session::Lock()
{
    const Hold hold(m_machine);
    if (m_user.empty() || std::exchange(m_locked, true)) return;
    Announce(WTS_SESSION_LOCK, L"lock");
}

void Session::Unlock()
{
    const Hold hold(m_machine);
    if (std::exchange(m_locked, false)) Announce(WTS_SESSION_UNLOCK, L"unlock");
}

void Session::Disconnect()
{
    const Hold hold(m_machine);
    if (!m_console) return;
    Logoff();
    Announce(WTS_CONSOLE_DISCONNECT, L"disconnect");
    m_console.reset();
}

void Session::SwitchOff()
{
    const Hold hold(m_machine);
    m_user.clear();
    m_locked = false;
}

void Session::InstallProgram(std::wstring_view path, std::optional<Duration> span, int exit_code)
{
    m_machine.programs.Install(path, [span, exit_code] {
        constexpr auto kLongest = std::chrono::milliseconds{INFINITE - 1};
        const auto time = span ? std::chrono::floor<std::chrono::milliseconds>(*span) : kLongest;
        ::Sleep(span ? static_cast<DWORD>(std::min(time, kLongest).count()) : INFINITE);
        return exit_code;
    });
}

std::vector<std::wstring> EnvironmentOf(std::wstring_view user)
{
    std::vector<std::wstring> environment = {L"ProgramData=C:\\ProgramData",
                                             L"SystemRoot=C:\\Windows"};
    if (user.empty()) return environment;
    const std::wstring name(user);
    environment.insert(environment.begin(), L"APPDATA=C:\\Users\\" + name + L"\\AppData\\Roaming");
    environment.push_back(L"USERNAME=" + name);
    environment.push_back(L"USERPROFILE=C:\\Users\\" + name);
    return environment;
}

}  // namespace virtual_pc
