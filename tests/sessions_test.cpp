// Several users on one PC, and what a token allows.

#include "platform/owned.h"
#include "platform/session.h"
#include "platform/virtual/announcer/announcer.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/processes/programs.h"
#include "platform/virtual/sessions/session.h"
#include "tests/virtual_pc_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

constexpr const wchar_t* kTool = LR"(C:\Tool.exe)";

class SessionsTest : public VirtualPcTest
{
protected:
    SessionsTest()
    {
        pc.journal.Listen([this](const Effect& effect) {
            if (effect.kind != "session") return;
            m_told += ToUtf8(effect.Text("what") + L" " + effect.Text("user")) + " " +
                      std::to_string(effect.Number("session")) + ". ";
        });
        pc.session.InstallProgram(kTool, std::nullopt, 0);
    }

    std::string Told() { return std::exchange(m_told, {}); }

    // Whose token a session has; empty where it has none, with the last error set.
    static OwnedHandle TokenOf(DWORD session)
    {
        OwnedHandle token;
        WTSQueryUserToken(session, token.Receive());
        return token;
    }

    // Starts the tool with a token; the error, or ERROR_SUCCESS.
    static DWORD StartWith(const OwnedHandle& token, BOOL inherit = FALSE)
    {
        STARTUPINFOW startup{};
        PROCESS_INFORMATION started{};
        wchar_t line[] = LR"(C:\Tool.exe)";
        const BOOL starts = CreateProcessAsUserW(token.Get(), nullptr, line, nullptr, nullptr,
                                                 inherit, 0, nullptr, nullptr, &startup, &started);
        const DWORD error = starts ? ERROR_SUCCESS : GetLastError();
        const OwnedHandle process(started.hProcess), thread(started.hThread);
        return error;
    }

    // The users and sessions of the tools that run.
    std::string Running() const
    {
        std::string running;
        for (const auto& process : pc.processes()) {
            if (!process->launch || !process->running()) continue;
            running +=
                ToUtf8(process->launch->user) + std::to_string(process->launch->session) + " ";
        }
        return running;
    }

private:
    std::string m_told;
};

TEST_F(SessionsTest, AUserWhoLeavesTheConsoleToAnotherStaysLoggedOn)
{
    pc.session.Logon(L"alice");
    EXPECT_EQ(Told(), "logon alice 1. ");
    const auto start_in = [&](DWORD session) {
        RunAsProcess([&] { EXPECT_EQ(StartWith(TokenOf(session)), DWORD{ERROR_SUCCESS}); });
    };
    start_in(1);
    pc.session.Switch(L"bob");
    EXPECT_EQ(Told(), "disconnect alice 1. connect  2. logon bob 2. ");
    start_in(2);
    start_in(1);
    EXPECT_EQ(Running(), "alice1 bob2 alice1 ");
    pc.session.Lock();
    pc.session.Switch(L"alice");
    EXPECT_EQ(pc.session.console(), 1u);
    EXPECT_FALSE(pc.session.locked());
    pc.session.Switch(L"bob");
    EXPECT_TRUE(pc.session.locked()) << "as it was left";
    EXPECT_EQ(Told(),
              "lock bob 2. disconnect bob 2. connect alice 1. disconnect alice 1. connect bob 2. ");
    pc.session.Logoff();
    pc.Settle();
    EXPECT_EQ(Running(), "alice1 alice1 ") << "only the programs of the session that ends";
    EXPECT_EQ(pc.session.UserOf(1), L"alice");
    EXPECT_EQ(pc.session.UserOf(2), std::nullopt);
    RunAsProcess([&] {
        EXPECT_FALSE(TokenOf(2));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
    });
    pc.session.Logon(L"alice");
    EXPECT_EQ(pc.session.console(), 1u) << "who logs on again returns";
    pc.session.Logoff();
    pc.Settle();
    EXPECT_EQ(Running(), "");
}

TEST_F(SessionsTest, ATokenIsGoodForWhatItsAccessAllows)
{
    pc.session.Logon(L"alice");
    // An access, and whether it copies, tells its environment, and starts a program.
    const std::tuple<DWORD, bool, bool, bool> cases[] = {
        {MAXIMUM_ALLOWED, true, true, true},
        {TOKEN_QUERY, false, false, false},
        {TOKEN_DUPLICATE, true, false, false},
        {TOKEN_DUPLICATE | TOKEN_QUERY, true, true, false},
        {TOKEN_DUPLICATE | TOKEN_QUERY | TOKEN_ASSIGN_PRIMARY, true, true, true},
    };
    RunAsProcess([&] {
        const OwnedHandle user = TokenOf(1);
        const auto copy = [](const OwnedHandle& of, DWORD access, OwnedHandle& copied) {
            return DuplicateTokenEx(of.Get(), access, nullptr, SecurityIdentification, TokenPrimary,
                                    copied.Receive());
        };
        const auto allowed = [](BOOL done) {
            return done || GetLastError() != ERROR_ACCESS_DENIED;
        };
        for (const auto& [access, copies, tells_environment, starts] : cases) {
            SCOPED_TRACE(access);
            OwnedHandle token, copied;
            ASSERT_TRUE(copy(user, access, token));
            EXPECT_EQ(allowed(copy(token, MAXIMUM_ALLOWED, copied)), copies);
            LPVOID environment = nullptr;
            EXPECT_EQ(allowed(CreateEnvironmentBlock(&environment, token.Get(), FALSE)),
                      tells_environment);
            if (environment) DestroyEnvironmentBlock(environment);
            EXPECT_EQ(StartWith(token), starts ? DWORD{ERROR_SUCCESS} : ERROR_ACCESS_DENIED);
        }
        EXPECT_EQ(StartWith(user, TRUE), DWORD{ERROR_SUCCESS});
    });
    EXPECT_TRUE(pc.processes().back()->launch->inherits_handles);
    pc.session.Logoff();
    pc.Settle();
}

}  // namespace
