// The prompt: what completion offers, what help shows, and a session at a terminal.

#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <poll.h>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "pc/vocabulary.h"
#include "tests/virtual_pc_test.h"

namespace fs = std::filesystem;

namespace {

using Words = std::vector<std::string>;

Words Offered(const std::string& line)
{
    std::vector<std::string_view> patterns;
    for (const Command& command : AllCommands()) patterns.push_back(command.pattern);
    return Complete(line, patterns,
                    [](Things things) {
                        if (things == Things::plans) return Words{"Balanced", "Power saver"};
                        return things == Things::endpoints ? Words{"Speakers"} : Words{};
                    })
        .words;
}

TEST(CompletionTest, OffersWhatMayStandThere)
{
    const std::pair<const char*, Words> cases[] = {
        {"us", {"user"}},
        {"user ", {"input", "leaves", "works"}},
        {"plan active ", {"\"Power saver\"", "Balanced"}},
        {"plan active p", {"\"Power saver\""}},
        {"plan active \"power s", {"\"Power saver\""}},
        {"plan set \"Power saver\" ", {"ac", "dc"}},
        {"plan set Balanced ac sleep", {"sleep-timeout"}},
        {"expect mute s", {"Speakers"}},
        {"run until state holv_d", {"HOLV_DND"}},
        {"expect state HOLV_DND", {"HOLV_DND"}},
        {"expect service run", {"running"}},
        {"fault PowerSetReq", {"PowerSetRequest"}},
        {"plan add ", {}},
        {"dance ", {}},
        {"run 30m ", {}},
    };
    for (const auto& [line, words] : cases) EXPECT_EQ(Offered(line), words) << line;
    EXPECT_GT(Offered("").size(), 20U);
}

// An example that its own command refuses teaches an error.
TEST(CompletionTest, EachCommandHasHelpAndAnExampleThatIsAccepted)
{
    for (const Command& command : AllCommands()) {
        EXPECT_FALSE(command.help.empty()) << command.pattern;
        const std::string example = ExampleOf(command.pattern);
        EXPECT_NO_THROW(Bind(ReadLine(example, {}, 1))) << example;
        std::ostringstream help;
        EXPECT_TRUE(PrintHelp(help, command.pattern.substr(0, command.pattern.find(' '))));
        EXPECT_NE(help.str().find("    " + example + "\n"), std::string::npos) << example;
    }
}

// holvpc at a terminal of its own.
class TerminalTest : public ::testing::Test
{
protected:
    TerminalTest() : m_home(fs::temp_directory_path() / ("holv-home-" + std::to_string(getpid())))
    {
        fs::create_directories(m_home);
        const std::string program = fs::path(HOLV_IMAGE).replace_filename("holvpc").string();
        const winsize size{.ws_row = 24, .ws_col = 100, .ws_xpixel = 0, .ws_ypixel = 0};
        m_child = forkpty(&m_terminal, nullptr, nullptr, &size);
        if (m_child == 0) {
            setenv("HOME", m_home.c_str(), 1);
            setenv("TMPDIR", m_home.c_str(), 1);
            setenv("TERM", "xterm", 1);
            // What a stopped run gives up would be told at the end, which no reader awaits.
            setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
            execl(program.c_str(), "holvpc", "live", "--speed", "600", nullptr);
            _exit(127);
        }
    }
    ~TerminalTest() override
    {
        kill(m_child, SIGKILL);
        waitpid(m_child, nullptr, 0);
        close(m_terminal);
        fs::remove_all(m_home);
    }

    void Type(const std::string& keys) const
    {
        ASSERT_EQ(write(m_terminal, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }

    // Reads on until the text comes, and forgets what came up to its end.
    void Await(const std::string& text)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds{60};
        std::size_t at = m_seen.find(text);
        while (at == m_seen.npos && std::chrono::steady_clock::now() < end) {
            pollfd input{.fd = m_terminal, .events = POLLIN, .revents = 0};
            if (poll(&input, 1, 1000) <= 0) continue;
            char bytes[4096];
            const ssize_t count = read(m_terminal, bytes, sizeof(bytes));
            if (count <= 0) break;
            m_seen.append(bytes, static_cast<std::size_t>(count));
            at = m_seen.find(text);
        }
        ASSERT_NE(at, m_seen.npos) << text << " does not come in\n" << m_seen;
        m_seen.erase(0, at + text.size());
    }

    fs::path m_home;
    pid_t m_child = -1;
    int m_terminal = -1;
    std::string m_seen;
};

TEST_F(TerminalTest, ThePcLivesWhileOneTypesAndAnInterruptStopsARunAlone)
{
    if (kRunFree) GTEST_SKIP() << "the thread sanitizer holds signals back while the PC lives";
    Await("no service> ");
    Type("serv\tinst\t\n");
    Await("HOLVService is installed as a service");
    Type("service start\n");
    Await("S0_NORMAL> ");
    Type("user leaves\n");
    // Ten minutes pass in a second, without a command.
    Await("the display goes off");
    Await("S0_NORMAL> ");
    Type("run 30000d\n");
    Await("days a second");
    Type("\x03");
    Await("stopped at 20");
    Await("> ");
    Type("say abandoned\x03");
    Await("> ");
    // The line before the abandoned one, from the history.
    Type("\x10\x10\n");
    Await("user leaves");
    Type("expect service running\n");
    Type("say still-on\n");
    Await("-- still-on");
    Type("quit\n");
    Await("the PC is switched off");
    int status = -1;
    waitpid(m_child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_TRUE(fs::exists(m_home / ".holvpc_history"));
}

}  // namespace
