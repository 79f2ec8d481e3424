// holvpc as a program: its command line, its exit status, and what it leaves behind.

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/seeds.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kWeek = "service install\nservice start\nuser leaves\nrun 20000d\n";

class CommandLineTest : public ::testing::Test
{
protected:
    CommandLineTest()
        : m_folder(fs::temp_directory_path() / ("holv-line-" + std::to_string(getpid())))
    {
        fs::create_directories(Temporary());
        Write("a.pc", "say hello\n");
        Write("week.pc", kWeek);
    }
    ~CommandLineTest() override { fs::remove_all(m_folder); }

    fs::path Temporary() const { return m_folder / "tmp"; }
    void Write(const std::string& file, const std::string& text) const
    {
        std::ofstream(m_folder / file, std::ios::binary) << text;
    }
    std::string Read(const std::string& file) const
    {
        std::ifstream stream(m_folder / file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    // Starts "holvpc ARGUMENTS" by the shell, in the test's folder, with its own folder for what is
    // temporary. The leak sanitizer is off: a run that is stopped gives up what the PC's processes
    // have on the heap.
    pid_t Start(const std::string& arguments) const
    {
        const std::string command =
            "cd '" + m_folder.string() + "' && ASAN_OPTIONS=detect_leaks=0 TMPDIR='" +
            Temporary().string() + "' exec '" +
            fs::path(HOLV_IMAGE).replace_filename("holvpc").string() + "' " + arguments;
        const pid_t child = fork();
        if (child == 0) {
            execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
            _exit(127);
        }
        return child;
    }

    // The exit status, or that of a shell for a signal: 128 and its number.
    static int StatusOf(pid_t child)
    {
        int status = 0;
        waitpid(child, &status, 0);
        return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }

    int Run(const std::string& arguments) const
    {
        return StatusOf(Start(arguments + " >out 2>errors"));
    }

    // Waits until the story in the file has come to the second day.
    void AwaitTuesday(const std::string& file) const
    {
        for (int i = 0; i < 1000 && Read(file).find("Tuesday") == std::string::npos; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds{20});
        }
    }

    fs::path m_folder;
};

TEST_F(CommandLineTest, AWrongOptionIsNamedWithItsValueAndWhatItTakes)
{
    Write("file", "");
    fs::create_directories(m_folder / "bad");
    Write("bad/registry.reg", "no registry\n");
    const std::pair<const char*, const char*> cases[] = {
        {"run --speed -5 a.pc", "--speed: \"-5\" is no speed"},
        {"run --speed nan a.pc", "--speed: \"nan\" is no speed"},
        {"run --speed 1x a.pc", "--speed: \"1x\" is no speed"},
        {"run --seed -1 a.pc", "--seed: \"-1\" is no whole number"},
        {"run --seed 18446744073709551616 a.pc", "is no whole number"},
        {"run --priorities -2 a.pc", "--priorities: \"-2\" is no whole number"},
        {"storm --seed -1", "--seed: \"-1\" is no number from 0 on"},
        {"run b.pc", "b.pc: cannot be read: No such file"},
        {"run bad", "bad: cannot be read: it is a folder"},
        {"run --os 5 a.pc", "--os: \"5\" is no version"},
        {"run --os 6. a.pc", "--os: \"6.\" is no version"},
        {"run --os 6.1a a.pc", "--os: \"6.1a\" is no version"},
        {"run --root '' a.pc", "--root: \"\" is no folder"},
        {"run --root file a.pc", "--root file: is no folder"},
        {"run --root /proc/pc a.pc", "--root /proc/pc: cannot be made"},
        {"run --root bad a.pc", "--root bad: bad/registry.reg:1: "},
        {"run --trace /nowhere/t a.pc", "--trace /nowhere/t: cannot be written"},
        {"a.pc", "to play a script: holvpc run a.pc"},
        {"dance", "\"dance\" is none of: run live"},
    };
    for (const auto& [arguments, words] : cases) {
        EXPECT_EQ(Run(arguments), 2) << arguments;
        EXPECT_NE(Read("errors").find(words), std::string::npos) << arguments << Read("errors");
        EXPECT_EQ(Read("out"), "") << arguments;
    }
    EXPECT_EQ(Run("help dance"), 2);
    EXPECT_EQ(Run("--version"), 0);
    EXPECT_TRUE(Read("out").starts_with("holvpc 1.")) << Read("out");
}

TEST_F(CommandLineTest, WhatCannotBeWrittenIsNoSuccess)
{
    for (const char* arguments : {"run a.pc", "run week.pc", "help", "live <a.pc"}) {
        EXPECT_EQ(StatusOf(Start(std::string(arguments) + " >/dev/full 2>errors")), 3) << arguments;
        EXPECT_NE(Read("errors").find("the standard output cannot be written"), std::string::npos);
    }
    EXPECT_EQ(Run("run --trace /dev/full week.pc"), 3);
    EXPECT_EQ(Read("errors"), "--trace /dev/full: not written to its end\n");
    fs::create_directories(m_folder / "kept/registry.reg.new");
    EXPECT_EQ(Run("run --root kept a.pc"), 3);
    EXPECT_NE(Read("errors").find("--root kept: the registry was not kept"), std::string::npos);
}

TEST_F(CommandLineTest, AKeptPcsReportHasTheErrorsOfItsEarlierRuns)
{
    Write("error.pc",
          "service install\nfault PowerCreateRequest 1450 once\nservice start\nrun 1m\n"
          "service stop\n");
    ASSERT_EQ(Run("run --root kept error.pc"), 0) << Read("errors");
    ASSERT_EQ(Run("run --root kept a.pc"), 0) << Read("errors");
    EXPECT_EQ(Run("report --root kept"), 0) << Read("errors");
    EXPECT_NE(Read("out").find("Can't create power request, GLE=1450"), std::string::npos)
        << Read("out");
}

TEST_F(CommandLineTest, AStoppedRunLeavesNothingBehind)
{
    if (kRunFree) GTEST_SKIP() << "the thread sanitizer holds signals back while the PC lives";
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        fs::remove(m_folder / "out");
        const pid_t child = Start("run week.pc >out 2>errors");
        AwaitTuesday("out");
        kill(child, signal);
        EXPECT_EQ(StatusOf(child), 128 + signal);
        EXPECT_TRUE(Read("errors").starts_with("week.pc:4: stopped at 20")) << Read("errors");
    }
    // A storm's lives run in processes of their own.
    const pid_t storm = Start("storm --days 300 --known-gaps '' >out 2>errors");
    for (int i = 0; i < 3000 && fs::is_empty(Temporary()); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds{20});
    }
    kill(storm, SIGTERM);
    EXPECT_EQ(StatusOf(storm), 128 + SIGTERM);
    EXPECT_NE(Read("out").find("stopped before its end"), std::string::npos) << Read("out");
    EXPECT_TRUE(fs::is_empty(Temporary()));
    // The reader goes after a line; `set` makes its absence the status of the pipe.
    const pid_t child = Start("run week.pc 2>errors | head -1 >out");
    EXPECT_EQ(StatusOf(child), 0);
    EXPECT_EQ(Read("out"), "Monday, 2026-03-02\n");
    for (int i = 0; i < 500 && !fs::is_empty(Temporary()); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds{20});
    }
    EXPECT_EQ(Read("errors"), "");
    EXPECT_TRUE(fs::is_empty(Temporary()));
}

TEST_F(CommandLineTest, TwoRunsDoNotShareAKeptPc)
{
    if (kRunFree) GTEST_SKIP() << "the thread sanitizer holds signals back while the PC lives";
    const pid_t first = Start("run --root kept week.pc >first 2>&1");
    AwaitTuesday("first");
    EXPECT_EQ(Run("run --root kept a.pc"), 2);
    EXPECT_NE(Read("errors").find("--root kept: another PC runs there, that of process " +
                                  std::to_string(first)),
              std::string::npos)
        << Read("errors");
    EXPECT_NE(Read("errors").find("--root kept week.pc"), std::string::npos);
    EXPECT_EQ(Run("report --root kept"), 2);
    EXPECT_NE(Read("errors").find("another PC runs there"), std::string::npos);
    kill(first, SIGTERM);
    StatusOf(first);
    // And what it kept is whole.
    Write("b.pc", "pc boot\nexpect service running\n");
    EXPECT_EQ(Run("run --root kept b.pc"), 0) << Read("errors");
}

TEST_F(CommandLineTest, APipedSessionEndsWithTheStatusOfItsWorstLine)
{
    const std::pair<const char*, int> sessions[] = {
        {"say hello\n", 0},
        {"expect service running\nsay on\n", 1},
        {"dance\nexpect service running\nsay on\nquit\n", 2},
        {"say \"never closed\nsay on\n", 2},
        {"help dance\nsay on\n", 2},
    };
    for (const auto& [lines, status] : sessions) {
        Write("in", lines);
        EXPECT_EQ(Run("<in"), status) << lines;
        const bool goes_on = std::string(lines).find("say on") != std::string::npos;
        EXPECT_EQ(Read("out").find("-- on") != std::string::npos, goes_on) << Read("out");
    }
}

}  // namespace
