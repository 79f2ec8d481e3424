// Programs in the session of the user at the console: which programs can be started there, how the
// service starts and ends its helpers, and what each failure leaves behind.

#include "platform/virtual/sessions/session.h"
#include "log/log.h"
#include "platform/module.h"
#include "platform/owned.h"
#include "platform/virtual/processes/programs.h"
#include "process/user_process.h"
#include "tests/virtual_pc_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

constexpr const wchar_t* kHelper = LR"(C:\Program Files\Orbeq\Holv\Helper.exe)";
constexpr const wchar_t* kPlanted = LR"(C:\Program.exe)";

class SessionTest : public VirtualPcTest
{
protected:
    SessionTest()
    {
        g_dwLoggingLevel = 6;
        g_dwLoggingEnabled = kLogToDebugger;
        pc.session.Logon(L"alice");
        pc.session.InstallProgram(kHelper, std::nullopt, 0);
    }

    void TearDown() override
    {
        EndPrograms();
        VirtualPcTest::TearDown();
    }

    void EndPrograms()
    {
        {
            const Hold hold(pc);
            for (const auto& process : pc.processes()) {
                if (process->launch) process->Terminate(1);
            }
        }
        pc.Settle();
    }

    // The programs started for users, in their order.
    std::vector<const Process*> Programs() const
    {
        std::vector<const Process*> programs;
        for (const auto& process : pc.processes()) {
            if (process->launch) programs.push_back(process.get());
        }
        return programs;
    }

    // The last of them, which there must be.
    const Process& Program() const { return *Programs().at(Programs().size() - 1); }
};

TEST_F(SessionTest, AProgramStartsHiddenOnTheUsersDesktopWithHisRightsAndEnvironment)
{
    RunAsProcess([&] {
        CUserProcess helper;
        EXPECT_FALSE(helper.IsLaunched());
        ASSERT_TRUE(helper.ExecuteProcessAsUserByHandle(kHelper, L"D:1 T:30", 0));
        EXPECT_TRUE(helper.IsLaunched());
    });
    const Process& program = Program();
    EXPECT_TRUE(program.running()) << "it outlives the object and the service that started it";
    EXPECT_EQ(program.command_line(), LR"("C:\Program Files\Orbeq\Holv\Helper.exe" D:1 T:30)");
    EXPECT_EQ(program.launch->session, 1u);
    EXPECT_FALSE(program.launch->inherits_handles) << "the service's own are not for the user";
    EXPECT_EQ(program.launch->user, L"alice");
    EXPECT_EQ(program.launch->Variable(L"USERPROFILE"), LR"(C:\Users\alice)");
    EXPECT_EQ(program.launch->desktop, LR"(winsta0\default)");
    EXPECT_EQ(program.launch->show, SW_HIDE);
    EXPECT_EQ(program.launch->startup_flags, STARTF_USESHOWWINDOW);
    EXPECT_EQ(program.launch->flags, 0x430u);
    pc.session.Logoff();
    pc.Settle();
    EXPECT_FALSE(program.running()) << "it ends with the session";
}

TEST_F(SessionTest, TheStarterWaitsForTheEndButNoLongerThanItSays)
{
    const struct
    {
        std::optional<Duration> runs;
        DWORD wait_s;
        Duration waited;
    } cases[] = {
        {std::nullopt, 0, 0s},
        {3s, 10, 3s},
        {std::nullopt, 10, 10s},
        {100s, 4294968, 100s},  // as milliseconds, more than 32 bits hold
    };
    for (const auto& c : cases) {
        pc.session.InstallProgram(kHelper, c.runs, 7);
        RunAsProcess([&] {
            CUserProcess helper;
            const Instant before = pc.now();
            EXPECT_TRUE(helper.ExecuteProcessAsUserByHandle(kHelper, L"", c.wait_s));
            EXPECT_EQ(pc.now() - before, c.waited) << c.wait_s;
        });
        EXPECT_EQ(Program().running(), !c.runs);
        if (c.runs) {
            EXPECT_EQ(Program().exit_code(), 7);
        }
    }
}

// A program that a user planted in C:\ must not run in another user's session.
TEST_F(SessionTest, AProgramPlantedAtAPrefixOfThePathIsNeverStarted)
{
    for (const wchar_t* prefix : {kPlanted, LR"(C:\Program Files\Orbeq\Holv.exe)"}) {
        pc.session.InstallProgram(prefix, std::nullopt, 0);
    }
    RunAsProcess([&] {
        std::wstring bare = kHelper;
        STARTUPINFOW startup{};
        PROCESS_INFORMATION information{};
        HANDLE token = nullptr;
        ASSERT_TRUE(WTSQueryUserToken(1, &token));
        const OwnedHandle owned(token);
        ASSERT_TRUE(CreateProcessAsUserW(token, nullptr, bare.data(), nullptr, nullptr, FALSE, 0,
                                         nullptr, nullptr, &startup, &information));
        const OwnedHandle process(information.hProcess);
        const OwnedHandle thread(information.hThread);
        EXPECT_EQ(Program().path(), kPlanted) << "what an unquoted path would start";

        CUserProcess helper;
        EXPECT_TRUE(helper.ExecuteProcessAsUserByHandle(kHelper, L"", 0));
        EXPECT_EQ(Program().path(), kHelper);
        EXPECT_EQ(Program().command_line(), LR"("C:\Program Files\Orbeq\Holv\Helper.exe")");

        CUserProcess missing;
        for (const wchar_t* path : {LR"(C:\Program Files\Missing.exe)", L""}) {
            EXPECT_FALSE(missing.ExecuteProcessAsUserByHandle(path, L"D:1 T:30", 0));
            EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
        }
    });
    EXPECT_EQ(Programs().size(), 2u);
    EXPECT_EQ(CandidatePrograms(L"C:\\a b\\c.d e"),
              (std::vector<std::wstring>{L"C:\\a.exe", L"C:\\a b\\c.d", L"C:\\a b\\c.d e"}));
}

TEST_F(SessionTest, EveryFailureOfALaunchIsToldAndLeavesNothingOpen)
{
    const std::string no_session = "WTSGetActiveConsoleSessionId() failed with Error 1117.\n";
    const struct
    {
        const char* fails;
        BOOL launched;
        std::string said;
    } cases[] = {
        {"WTSGetActiveConsoleSessionId", FALSE, no_session},
        {"WTSQueryUserToken", FALSE, ""},
        {"DuplicateTokenEx", FALSE, ""},
        {"CreateEnvironmentBlock", TRUE, "CreateEnvironmentBlock failed, error=1117"},
        {"CreateProcessAsUserW", FALSE, ""},
        {"WaitForSingleObject", TRUE, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fails);
        RunAsProcess([&] {
            const std::size_t before = Programs().size();
            pc.faults.Set(c.fails, {.error = 1117});
            CUserProcess helper;
            EXPECT_EQ(helper.ExecuteProcessAsUserByHandle(kHelper, L"", 0), c.launched);
            EXPECT_EQ(GetLastError(), 1117u);
            EXPECT_EQ(helper.IsLaunched(), c.launched);
            EXPECT_EQ(Programs().size() - before, c.launched ? 1u : 0u);
            EXPECT_EQ(Joined(heard.Take()), c.said);
        });
        if (std::string(c.fails) == "CreateEnvironmentBlock") {
            EXPECT_EQ(Program().launch->flags, 0x30u);
            EXPECT_EQ(Program().launch->Variable(L"USERNAME"), L"SYSTEM") << "the service's own";
        }
    }
}

// Without a logged-on user no program is started, in particular none with the service's rights.
TEST_F(SessionTest, WithoutAUserAtTheConsoleNothingIsStarted)
{
    const struct
    {
        std::function<void()> make_so;
        DWORD error;
    } cases[] = {
        {[&] { pc.session.service_is_local_system = false; }, ERROR_PRIVILEGE_NOT_HELD},
        {[&] {
             pc.session.service_is_local_system = true;
             pc.session.Logoff();
         },
         ERROR_NO_TOKEN},
        {[&] { pc.session.Disconnect(); }, 1117},
    };
    const std::size_t before = pc.processes().size();
    for (const auto& c : cases) {
        c.make_so();
        RunAsProcess([&] {
            SetLastError(1117);  // what a call before it has left
            CUserProcess helper;
            EXPECT_FALSE(helper.ExecuteProcessAsUserByHandle(kHelper, L"", 0));
            EXPECT_EQ(GetLastError(), c.error);
        });
    }
    EXPECT_EQ(pc.processes().size(), before + std::size(cases)) << "the starters alone";
    EXPECT_EQ(Joined(heard.Take()), "WTSGetActiveConsoleSessionId() failed with Error 1117.\n");
}

// --- Ending ---

TEST_F(SessionTest, EveryWayOfQuittingAProcessHasItsResultAndClosesTheHandle)
{
    const struct
    {
        const char* fails;  // null for none
        LONG result;
        std::string said;
    } cases[] = {
        {"OpenProcessToken", -1, "Unable to get current process token - 1117\n"},
        {"LookupPrivilegeValueW", -2, "Unable to lookup privilege value SE_DEBUG_NAME - 1117\n"},
        {"AdjustTokenPrivileges", -3,
         "Unable to adjust token privileges for current process - 1117\n"},
        {"TerminateProcess", -5, "Could not terminate process ... error = 1117\n"},
        {nullptr, 0, ""},
    };
    RunAsProcess([&] {
        for (const auto& c : cases) {
            SCOPED_TRACE(c.result);
            CUserProcess helper;
            ASSERT_TRUE(helper.ExecuteProcessAsUserByHandle(kHelper, L"", 0));
            if (c.fails) pc.faults.Set(c.fails, {.error = 1117});
            EXPECT_EQ(helper.QuitProcess(), c.result == 0);
            EXPECT_FALSE(helper.IsLaunched());
            EXPECT_EQ(Joined(heard.Take()), c.said);
            EXPECT_TRUE(helper.QuitProcess()) << "there is none any more";
            Sleep(1);
            EXPECT_EQ(Program().running(), c.result != 0);

            if (c.fails) pc.faults.Set(c.fails, {.error = 1117});
            EXPECT_EQ(CUserProcess::QuitProcess(OpenProcess(0, FALSE, Program().id())),
                      c.fails ? c.result : -4);
            pc.faults.ClearAll();
            heard.Forget();
        }
        EXPECT_EQ(Program().exit_code(), 0);
        CUserProcess ended;
        pc.session.InstallProgram(kHelper, 1s, 3);
        ASSERT_TRUE(ended.ExecuteProcessAsUserByHandle(kHelper, L"", 2));
        EXPECT_FALSE(ended.QuitProcess());
        EXPECT_EQ(Joined(heard.Take()), "Could not terminate process ... error = 5\n");
        EXPECT_EQ(CUserProcess::QuitProcess(nullptr), -4);
        EXPECT_EQ(Joined(heard.Take()), "The process handle passed in is NULL\n");
    });
    EXPECT_TRUE(pc.processes().front()->debug_privilege) << "it stays enabled";
}

TEST_F(SessionTest, AnAccountWithoutTheDebugPrivilegeEndsItsHelperAllTheSame)
{
    pc.session.service_has_debug_privilege = false;
    RunAsProcess([&] {
        CUserProcess helper;
        ASSERT_TRUE(helper.ExecuteProcessAsUserByHandle(kHelper, L"", 0));
        EXPECT_TRUE(helper.QuitProcess());
        EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_ALL_ASSIGNED});
        OwnedHandle token;
        ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.Receive()));
        EXPECT_FALSE(AdjustTokenPrivileges(token.Get(), TRUE, nullptr, 0, nullptr, nullptr));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
    });
    EXPECT_FALSE(pc.processes().front()->debug_privilege);
    EXPECT_EQ(Joined(heard.Take()), "");
}

TEST_F(SessionTest, AHandleThatCannotBeClosedIsToldAndNoFailure)
{
    left_open_is_expected = true;
    const struct
    {
        std::uint64_t nth;  // close: the token is the first
        const char* said;
    } cases[] = {{2, "failed to close processHandle with error = 6"},
                 {3, "Failed closed hThread for process error = 6"}};
    for (const auto& c : cases) {
        RunAsProcess([&] {
            CUserProcess helper;
            ASSERT_TRUE(helper.ExecuteProcessAsUserByHandle(kHelper, L"", 0));
            pc.faults.Set("CloseHandle", {.error = 6, .first = c.nth});
            EXPECT_TRUE(helper.QuitProcess());
            EXPECT_EQ(Joined(heard.Take()), c.said);
        });
    }
    RunAsProcess([&] {
        pc.faults.Set("CreateProcessAsUserW", {.error = 1117});
        pc.faults.Set("DestroyEnvironmentBlock", {.error = 6});
        EXPECT_FALSE(CUserProcess().ExecuteProcessAsUserByHandle(kHelper, L"", 0));
        EXPECT_EQ(GetLastError(), 1117u) << "the launch's, and not of what is released after it";
    });
}

// --- The service's folder ---

TEST_F(SessionTest, TheServicesFolderIsCutAtTheLastBackslashThatFits)
{
    const struct
    {
        DWORD size;
        const wchar_t* folder;  // null for failure
    } cases[] = {
        {MAX_PATH, LR"(C:\Program Files\Orbeq\Holv)"},
        {20, LR"(C:\Program Files)"},
        {4, L"C:"},
        {3, nullptr},
        {0, nullptr},
    };
    RunAsProcess([&] {
        wchar_t buffer[MAX_PATH];
        for (const auto& c : cases) {
            const wchar_t* folder = GetModuleFilePath(buffer, c.size);
            ASSERT_EQ(folder != nullptr, c.folder != nullptr) << c.size;
            if (folder) {
                EXPECT_STREQ(folder, c.folder);
            }
        }
        pc.faults.Set("GetModuleFileNameW", {});
        EXPECT_EQ(GetModuleFilePath(buffer, MAX_PATH), nullptr);
        EXPECT_EQ(Joined(heard.Take()), "");
        EXPECT_EQ(GetModuleFilePath(nullptr, MAX_PATH), nullptr);
        EXPECT_EQ(Joined(heard.Take()), "Invalid parameter");
    });
}

}  // namespace
