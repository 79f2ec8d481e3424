// The log: what reaches which output, and every byte of the file.

#include <fnmatch.h>

#include <cstdio>
#include <fstream>
#include <map>

#include "log/event_source.h"
#include "log/log.h"
#include "log/log_file.h"
#include "platform/owned.h"
#include "platform/virtual/console/outputs.h"
#include "platform/virtual/eventlog/event_log.h"
#include "platform/virtual/registry/registry.h"
#include "tests/fresh_service.h"
#include "tests/virtual_pc_test.h"

using namespace virtual_pc;

namespace {

constexpr const wchar_t* kPipe = L"ZYTA_HOLV_IP1";
constexpr std::string_view kEnd = "\r\n\r\r";
constexpr std::string_view kRule = "=====================================================";

// A line of the log as it stands in the file, written at 14:53:27.012.
std::string LineInFile(DWORD thread, std::string_view text, DWORD level,
                       std::string_view end = kEnd)
{
    char head[64];
    char tail[64];
    std::snprintf(head, sizeof(head), "14:53:27:012,[t:0x%X] : ", static_cast<unsigned>(thread));
    std::snprintf(tail, sizeof(tail), " [L=%u][M=NeverSleep]", static_cast<unsigned>(level));
    return std::string(head).append(text).append(tail).append(end);
}

Lines LinesIn(std::string_view bytes, std::string_view end = kEnd)
{
    Lines lines;
    for (std::size_t at = 0; (at = bytes.find(end)) != bytes.npos;) {
        lines.emplace_back(bytes.substr(0, at));
        bytes.remove_prefix(at + end.size());
    }
    EXPECT_EQ(bytes, "") << "after the last line";
    return lines;
}

// The message of a line.
std::string TextIn(const std::string& line)
{
    const std::size_t begin = line.find(" : ") + 3;
    return line.substr(begin, line.rfind(" [L=") - begin);
}

class LogTest : public VirtualPcTest
{
protected:
    LogTest()
    {
        pc.SetClock(*ParseCalendar("2026-03-02 14:53:27"));
        g_dwLoggingLevel = 6;
        g_dwLoggingEnabled = kLogToFile;
    }

    // Runs `body` in a process at 14:53:27.012.
    void RunAtTheTime(const std::function<void()>& body)
    {
        RunAsProcess([&] {
            Sleep(12);
            thread = GetCurrentThreadId();
            body();
        });
    }

    std::deque<DebugLine> Debug() const { return pc.outputs.debug(); }

    DWORD thread = 0;  // that ran the latest body
};

TEST_F(LogTest, TheFileBeginsWithTheHeaderAndHoldsEachMessageByteForByte)
{
    RunAtTheTime([] {
        Log(1, L"CNeverSleepState::EnterNormalS0State", L"%s entry", L"EnterNormalS0State");
        Log(6, L"F", L"line end\n");
        Log(2, L"F", L"caf\x00E9\x00FF");
        Log(2, L"F", L"not 8-bit: \x0142");
        Log(2, L"F", L"");
        const OwnedFile read(CreateFileW(kLogPath, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                         nullptr, OPEN_EXISTING, 0, nullptr));
        EXPECT_TRUE(read) << "an editor may have the log open while it is written";
    });
    const std::string bytes = LogBytes();
    const std::size_t messages = bytes.find(LineInFile(thread, "EnterNormalS0State entry", 1));
    ASSERT_NE(messages, bytes.npos);
    EXPECT_EQ(bytes.substr(messages), LineInFile(thread, "EnterNormalS0State entry", 1) +
                                          LineInFile(thread, "line end\n", 6) +
                                          LineInFile(thread, "caf\xE9\xFF", 2) +
                                          LineInFile(thread, "", 2) + LineInFile(thread, "", 2));

    // As the shell's patterns.
    const char* const expected[] = {
        kRule.data(),
        "Log set to file on 02.03.2026, at 14:53:27:012",
        R"(Executable: C:\Program Files\Orbeq\Holv\HOLVService.exe)",
        "Compile time : [A-Z][a-z][a-z] [ 1-3][0-9] 20[0-9][0-9] [0-2][0-9]:[0-5][0-9]:[0-5][0-9]",
        "ProcessID: 0x400",
        "HOLV Build Version # [0-9]*.[0-9]*.[0-9]*.[0-9]*",
        "Log File Size: 5MB",
        kRule.data(),
    };
    const Lines header = LinesIn(std::string_view(bytes).substr(0, messages));
    ASSERT_EQ(header.size(), std::size(expected));
    for (std::size_t i = 0; i < header.size(); ++i) {
        const std::string text = TextIn(header[i]);
        EXPECT_EQ(header[i], LineInFile(thread, text, 5, ""));
        EXPECT_EQ(fnmatch(expected[i], text.c_str(), FNM_NOESCAPE), 0) << text;
    }
}

TEST_F(LogTest, LevelAndMaskDecideWhichOutputsAMessageReaches)
{
    constexpr int kNoEvent = -1;
    const struct
    {
        DWORD mask, most_verbose, level;
        bool file, debugger, console;
        int event_type;
    } cases[] = {
        // Before the first write, since neither of these may create the file.
        {0, 6, 3, false, false, false, kNoEvent},
        {1, 4, 1, false, false, false, EVENTLOG_SUCCESS},
        {1, 4, 3, false, false, false, EVENTLOG_ERROR_TYPE},
        {1, 4, 4, false, false, false, EVENTLOG_WARNING_TYPE},
        {1, 3, 4, false, false, false, kNoEvent},
        {13, 6, 2, false, true, true, kNoEvent},
        {7, 4, 6, false, false, false, kNoEvent},
        {7, 4, 2, true, true, false, kNoEvent},
        {7, 4, 4, true, true, false, EVENTLOG_WARNING_TYPE},
        {15, 6, 6, true, true, true, kNoEvent},
        {10, 6, 1, true, false, true, EVENTLOG_SUCCESS},
    };
    RunAtTheTime([&] {
        for (const auto& each : cases) {
            SCOPED_TRACE(::testing::Message() << "mask " << each.mask << " level " << each.level
                                              << " of " << each.most_verbose);
            const std::string file = LogBytes();
            const std::size_t debugged = Debug().size();
            const std::string console = pc.outputs.console();
            const std::size_t events = pc.event_log.records().size();
            g_dwLoggingEnabled = each.mask;
            g_dwLoggingLevel = each.most_verbose;
            Log(each.level, L"F", L"said %d", 1);

            const std::string line = LineInFile(thread, "said 1", each.level);
            if (each.file) {
                EXPECT_TRUE(LogBytes().ends_with(line) && LogBytes().size() > file.size());
            } else {
                EXPECT_EQ(LogBytes(), file);
            }
            EXPECT_EQ(Debug().size() - debugged, each.debugger ? 1u : 0u);
            if (each.debugger) {
                EXPECT_EQ(Debug().back().text, L"HOLV - F   said 1");
            }
            EXPECT_EQ(pc.outputs.console(), console + (each.console ? "F   said 1\n" : ""));
            ASSERT_EQ(pc.event_log.records().size() - events,
                      each.event_type == kNoEvent ? 0u : 1u);
            if (each.event_type == kNoEvent) continue;
            const EventRecord& event = pc.event_log.records().back();
            EXPECT_EQ(event.type, each.event_type);
            EXPECT_EQ(event.source, L"Orbeq( R ) HOLV");
            EXPECT_EQ(event.category, 1);
            EXPECT_EQ(event.event_id, 2000u);
            EXPECT_EQ(event.strings, std::vector<std::wstring>{L"HOLV - F   said 1"});
        }
    });
}

TEST_F(LogTest, ALineIsIndentedByItsThreadsDepthAndNoneIsAboveTheWritersLevel)
{
    constexpr std::size_t kMost = 99;
    RunAtTheTime([] {
        CLOGFile writer;
        const auto indent = [](std::uintptr_t blanks) {
            constexpr DWORD kIndexes = 8;  // one of them is the writer's
            for (DWORD i = 0; i < kIndexes; ++i) TlsSetValue(i, reinterpret_cast<LPVOID>(blanks));
        };
        indent(3);
        writer.Open();
        indent(kMost + 1);
        for (const LONG level : {0, 16, 17}) writer.Write(level, L"said");
    });
    const Lines lines = LinesIn(LogBytes());
    ASSERT_EQ(lines.size(), 10u);
    EXPECT_EQ(TextIn(lines[0]), kRule) << "the thread that opens the writer begins at no depth";
    EXPECT_EQ(lines[8], LineInFile(thread, std::string(kMost, ' ') + "said", 0, ""));
    EXPECT_EQ(lines[9], LineInFile(thread, std::string(kMost, ' ') + "said", 16, ""));
}

TEST_F(LogTest, LongMessagesAreCutAtTheirLimitsAndLongLinesDropped)
{
    const std::size_t overhead = LineInFile(0x1000, "", 3).size();
    const std::wstring fits(1023 - overhead, L'f');
    const std::wstring too_long(fits.size() + 1, L't');
    const std::wstring endless(2000, L'\x00E9');
    RunAtTheTime([&] {
        Log(3, L"Fits", L"%s", fits.c_str());
        Log(3, L"TooLong", L"%s", too_long.c_str());
        g_dwLoggingEnabled = 15;
        Log(3, L"Endless", L"%s", endless.c_str());
    });
    const std::string bytes = LogBytes();
    EXPECT_TRUE(bytes.ends_with(LineInFile(thread, std::string(fits.size(), 'f'), 3)));
    EXPECT_EQ(LinesIn(bytes).size(), 9u) << "the header and the one line that fits";

    const std::wstring cut = (L"HOLV - Endless   " + endless).substr(0, 1023);
    EXPECT_EQ(pc.event_log.records().back().strings[0], cut);
    EXPECT_EQ(Debug().back().text, cut);
    std::string utf8 = "Endless   ";
    for (int i = 0; i < 1023; ++i) utf8 += "\xC3\xA9";
    EXPECT_EQ(pc.outputs.console(), utf8 + "\n");
}

// Four lines fit the pipe, and a byte pipe takes the beginning of a fifth.
TEST_F(LogTest, ADeafListenerHoldsNothingUpAndHearsWholeLines)
{
    for (const bool messages : {false, true}) {
        FreshService();
        const auto listener = pc.disk.Listen(kPipe, L"alice");
        listener->takes_messages = messages;
        listener->ReadAt(pc, 0);
        RunAtTheTime([&] {
            for (const wchar_t letter : std::wstring(L"abcdefg")) {
                if (letter == L'g') listener->ReadAt(pc, 5000);
                if (letter == L'g') Sleep(1000);
                Log(2, L"F", L"%s", std::wstring(950, letter).c_str());
            }
        });
        std::string letters;
        for (const std::string& line : LinesIn(listener->heard, "\r\r")) letters += TextIn(line)[0];
        EXPECT_EQ(letters, messages ? "abcdg" : "abcdeg");
        EXPECT_FALSE(listener->may_impersonate);
        pc.disk.Hangup(listener);
    }
}

TEST_F(LogTest, AFailedOpenIsTriedAgainAndAlsoTheNextFolderServes)
{
    constexpr const wchar_t* kOtherPath = LR"(C:\Program Files\Orbeq\Holv\Logs\HOLVLog.txt)";
    pc.disk.Write(LR"(C:\Program Files\Orbeq\Holv\HOLVService.exe)", "");
    pc.faults.Set("CreateFileW", {.count = 2});  // pipe and file of the first message
    pc.faults.Set("SHGetKnownFolderPath", {.count = Faults::kAlways});
    pc.faults.Set("SetNamedPipeHandleState", {.error = 5});  // a pipe that could hold it up
    const auto listener = pc.disk.Listen(kPipe, L"alice");
    RunAtTheTime([] {
        Log(2, L"F", L"lost");
        Log(2, L"F", L"kept");
    });
    EXPECT_FALSE(pc.disk.Read(kLogPath).has_value());
    const std::string bytes = pc.disk.Read(kOtherPath).value_or("");
    EXPECT_EQ(LinesIn(bytes).size(), 9u) << "the header and one line";
    EXPECT_TRUE(bytes.ends_with(LineInFile(thread, "kept", 2)));
}

TEST_F(LogTest, AFullDiskCostsTheLineAndNothingElse)
{
    RunAtTheTime([&] {
        Log(2, L"F", L"before");
        pc.disk.space_left = 10;
        Log(2, L"F", L"cut off");
        EXPECT_EQ(pc.faults.CallsOf("FlushFileBuffers"), 1u);
        pc.disk.space_left.reset();
        Log(2, L"F", L"after");
    });
    EXPECT_TRUE(LogBytes().ends_with(LineInFile(thread, "before", 2) + "14:53:27:0" +
                                     LineInFile(thread, "after", 2)));
}

TEST_F(LogTest, AnExceptionInAnOutputEndsThatMessageAloneAndTheLastErrorStays)
{
    pc.faults.Set("ReportEventW", {.error = 0xC0000005, .raise = true});
    RunAtTheTime([] {
        SetLastError(1234);
        Log(3, L"F", L"stumbles");
        Log(3, L"F", L"goes through");
        EXPECT_EQ(GetLastError(), 1234u);
    });
    ASSERT_EQ(Debug().size(), 1u);
    EXPECT_EQ(Debug()[0].text, L"fault inside logging function, exception caught");
    EXPECT_EQ(LinesIn(LogBytes()).size(), 9u);
    EXPECT_TRUE(LogBytes().ends_with(LineInFile(thread, "goes through", 3)));
}

// --- The size limit ---

TEST_F(LogTest, TheFileIsWrittenFromItsStartOncePastTheLimit)
{
    constexpr std::size_t kMegabyte = 1 << 20;
    const std::size_t first_line = LineInFile(0x1000, kRule, 5).size();
    // What administrators are told of it.
    std::ifstream table(HOLV_SOURCE_DIR "/tools/settings.txt");
    const std::string told(std::istreambuf_iterator<char>(table), {});
    EXPECT_NE(told.find("\nLogFileSizeMB | User | number 1 to 2047 | 5 |"), told.npos);
    const struct
    {
        RegistryValue setting;  // LogFileSizeMB; of no type when it is missing
        std::size_t existing;   // bytes of an older log
        std::size_t header_at;  // where the second line of the header then begins
        const char* size_line;
    } limits[] = {
        {{}, 5 * kMegabyte + 1, first_line, "5MB "},
        {{}, 5 * kMegabyte, 0, "5MB "},
        {RegistryValue::Dword(1), kMegabyte + 1, first_line, "1MB "},
        {RegistryValue::Dword(1), 1000, 1000 + first_line, "1MB "},
        {RegistryValue::Dword(0), 2 * kMegabyte, 2 * kMegabyte + first_line, "5MB "},
        {RegistryValue::String(L"1"), 0, first_line, "5MB "},
        {RegistryValue::Dword(4096), 6 * kMegabyte, 6 * kMegabyte + first_line, "2047MB "},
    };
    for (const auto& limit : limits) {
        SCOPED_TRACE(&limit - limits);
        FreshService();
        pc.SetClock(*ParseCalendar("2026-03-02 14:53:27"));
        pc.registry.DeleteValue(kUserKey, L"LogFileSizeMB");
        if (limit.setting.type != REG_NONE)
            pc.registry.Set(kUserKey, L"LogFileSizeMB", limit.setting);
        pc.disk.Write(kLogPath, std::string(limit.existing, 'x'));
        RunAtTheTime([] { Log(2, L"F", L"said"); });
        const std::string bytes = LogBytes();
        EXPECT_EQ(bytes.find(" : Log set to file on 02.03.2026"),
                  limit.header_at + std::string_view("14:53:27:012,[t:0x1000]").size());
        EXPECT_NE(bytes.find(std::string("Log File Size: ") + limit.size_line), bytes.npos);
        EXPECT_GE(bytes.size(), limit.existing) << "the file never gets shorter";
        EXPECT_EQ(bytes.ends_with(LineInFile(thread, "said", 2)),
                  limit.header_at >= limit.existing);
    }
}

// --- Many threads ---

TEST(LogStormTest, FirstMessagesFromEverywhereGiveOneHeaderAndWholeLinesInOrder)
{
    constexpr int kThreads = 8;
    constexpr int kMessages = 25;
    StormOnPc({.seeds = 10, .free = 2}, [](Machine& pc, const Machine::Options&) {
        pc.SetClock(*ParseCalendar("2026-03-02 14:53:27"));
        Process& process = pc.Start([] {
            Sleep(12);
            OwnedHandle threads[kThreads];
            for (OwnedHandle& each : threads) {
                each.Reset(CreateThread(
                    nullptr, 0,
                    [](LPVOID) -> DWORD {
                        for (int n = 0; n < kMessages; ++n) Log(2, L"F", L"message %02d", n);
                        return 0;
                    },
                    nullptr, 0, nullptr));
            }
            for (const OwnedHandle& each : threads) WaitForSingleObject(each.Get(), INFINITE);
            return 0;
        });
        pc.RunUntilEnd(process);

        const Lines lines = LinesIn(pc.disk.Read(kLogPath).value_or(""));
        ASSERT_EQ(lines.size(), 8u + kThreads * kMessages);
        for (int i = 0; i < 8; ++i) {
            EXPECT_NE(lines[i].find("[L=5]"), std::string::npos) << lines[i];
        }
        std::map<DWORD, int> next;  // by thread
        for (std::size_t i = 8; i < lines.size(); ++i) {
            unsigned id = 0;
            ASSERT_EQ(std::sscanf(lines[i].c_str(), "14:53:27:012,[t:0x%X]", &id), 1) << lines[i];
            char text[32];
            std::snprintf(text, sizeof(text), "message %02d", next[id]++);
            EXPECT_EQ(lines[i], LineInFile(id, text, 2, ""));
        }
        EXPECT_EQ(next.size(), std::size_t{kThreads});
    });
}

// --- The event log ---

using EventSourceTest = LogTest;

TEST_F(EventSourceTest, WithoutCategoriesTheSourceHasTheFileOfItsMessagesOnly)
{
    constexpr const wchar_t* kKey =
        LR"(HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\Orbeq( R ) HOLV)";
    RunAsProcess([] { InstallEventLogSource(0); });
    const RegistryValue file = pc.registry.Get(kKey, L"EventMessageFile").value_or(RegistryValue{});
    EXPECT_EQ(file.data.size(), (Image{}.path.size() + 1) * sizeof(wchar_t));
    EXPECT_FALSE(pc.registry.Get(kKey, L"CategoryCount"));
    EXPECT_FALSE(pc.registry.Get(kKey, L"CategoryMessageFile"));
    pc.faults.Set("RegCreateKeyW", {.error = 5});
    RunAsProcess([] { InstallEventLogSource(1); });
    EXPECT_EQ(Debug().back().text,
              L"Unable to create event service key for Orbeq( R ) HOLV, error=5\n");
    EXPECT_FALSE(pc.disk.Read(kLogPath)) << "told to the debugger only";
}

TEST_F(EventSourceTest, ReportsCarryTheirTextAndTheServicesOwnEventIsPrintedInAConsole)
{
    const std::wstring text(300, L'x');
    RunAsProcess([&] {
        ReportToEventLog(nullptr, 6);
        LogEvent(L"Bad service request");
        SetRunsAsService(true);
        LogEvent(L"%s", text.c_str());
        pc.faults.Set("RegisterEventSourceW", {});
        ReportToEventLog(L"dropped", 1);
    });
    const auto& records = pc.event_log.records();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].strings[0], L"cannot log a null message");
    EXPECT_EQ(records[0].type, EVENTLOG_INFORMATION_TYPE);
    EXPECT_EQ(records[1].strings, std::vector<std::wstring>{L"Bad service request"});
    EXPECT_EQ(records[2].strings[0], text.substr(0, 255));
    for (const EventRecord& record : {records[1], records[2]}) {
        EXPECT_EQ(record.source, L"HOLVService");
        EXPECT_EQ(record.type, EVENTLOG_INFORMATION_TYPE);
        EXPECT_EQ(record.category, 0);
        EXPECT_EQ(record.event_id, 0u);
    }
    EXPECT_EQ(pc.outputs.console(), "Bad service request\n");
}

}  // namespace
