// The event log: what a process reports, and what the viewer makes of it.

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>

#include "platform/owned.h"
#include "platform/virtual/eventlog/event_log.h"
#include "platform/virtual/registry/registry.h"
#include "tests/virtual_pc_test.h"

using namespace virtual_pc;

namespace {

constexpr const wchar_t* kSource = L"Orbeq( R ) HOLV";
constexpr const wchar_t* kSourceKey =
    LR"(HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\Orbeq( R ) HOLV)";
constexpr const wchar_t* kModule = LR"(C:\Program Files\Orbeq\Holv\HOLVService.exe)";

class EventLogTest : public VirtualPcTest
{
protected:
    void SetUp() override
    {
        m_file = std::filesystem::temp_directory_path() /
                 ("event_log_test." + std::to_string(::getpid()) + ".mc");
    }
    void TearDown() override
    {
        std::filesystem::remove(m_file);
        VirtualPcTest::TearDown();
    }

    void RegisterSource(const wchar_t* files)
    {
        for (const wchar_t* value : {L"EventMessageFile", L"CategoryMessageFile"}) {
            pc.registry.Set(kSourceKey, value, RegistryValue::String(files, REG_EXPAND_SZ));
        }
    }

    // Stores these messages in the module's resources.
    void AddMessages(std::string_view text)
    {
        std::ofstream(m_file, std::ios::binary) << text;
        pc.event_log.AddMessageFile(kModule, m_file);
    }

    void Report(WORD type, WORD category, DWORD id, std::vector<LPCWSTR> strings)
    {
        RunAsProcess([&] {
            const OwnedEventSource source(RegisterEventSourceW(nullptr, kSource));
            char data[] = {1, 2};
            EXPECT_TRUE(ReportEventW(source.Get(), type, category, id, nullptr,
                                     static_cast<WORD>(strings.size()), sizeof(data),
                                     strings.data(), data));
        });
    }

    std::filesystem::path m_file;
};

TEST_F(EventLogTest, TheServicesEventsReadAsTheyWereReported)
{
    std::wstring told;
    std::set<std::string_view> kinds;
    const auto hear = [&](const Effect& effect) {
        kinds.insert(effect.kind);
        told = effect.Text("source") + L": " + effect.Text("text");
    };
    pc.journal.Listen(hear, [](std::string_view kind) { return kind == "event"; });
    RegisterSource(LR"(c:\program files\orbeq\holv\holvservice.EXE)");
    pc.event_log.AddMessageFile(
        kModule, std::filesystem::path(HOLV_SOURCE_DIR) / "resources" / "HOLVService.mc");
    pc.RunFor(90s);
    Report(EVENTLOG_WARNING_TYPE, 1, 2000, {L"HOLV - Here   100% %1 done"});

    ASSERT_EQ(pc.event_log.records().size(), 1u);
    const EventRecord& record = pc.event_log.records().front();
    EXPECT_EQ(pc.event_log.Text(record), L"HOLV - Here   100% %1 done");
    EXPECT_EQ(pc.event_log.Category(record), L"NeverSleep Agent Service");
    EXPECT_EQ(record.type, EVENTLOG_WARNING_TYPE);
    EXPECT_EQ(FormatCalendar(record.clock), "2026-03-02 08:01:30.000");
    EXPECT_EQ(record.data, (std::vector<BYTE>{1, 2}));
    EXPECT_EQ(told, L"Orbeq( R ) HOLV: HOLV - Here   100% %1 done");
    EXPECT_EQ(kinds, std::set<std::string_view>{"event"}) << "the listener wants no other";
}

TEST_F(EventLogTest, WithoutTheMessageTheViewerShowsOnlyWhatCameWithTheEvent)
{
    constexpr const wchar_t* kUnknown =
        L"The description for Event ID 2000 from source Orbeq( R ) HOLV cannot be found. The "
        L"following information was included with the event: one; two";
    Report(EVENTLOG_SUCCESS, 1, 2000, {L"one", L"two"});
    const EventRecord& record = pc.event_log.records().front();
    const auto expect_unknown = [&](const char* why) {
        EXPECT_EQ(pc.event_log.Text(record), kUnknown) << why;
        EXPECT_EQ(pc.event_log.Category(record), L"(1)") << why;
    };
    expect_unknown("the source is not registered");
    RegisterSource(kModule);
    expect_unknown("the module has no messages");
    AddMessages("MessageId=3\nLanguage=English\nthree\n.\n");
    expect_unknown("the module has other messages");
    AddMessages("MessageId=1\nLanguage=English\nFirst\n.\n");
    EXPECT_EQ(pc.event_log.Category(record), L"First");

    pc.registry.DeleteKey(kSourceKey);
    expect_unknown("the source is registered no more");
    EXPECT_EQ(pc.event_log.Category(EventRecord{}), L"None");
}

TEST_F(EventLogTest, InsertionsAreReplacedInTheMessage)
{
    RegisterSource(LR"(C:\Windows\other.dll;C:\Program Files\Orbeq\Holv\HOLVService.exe)");
    AddMessages(
        "; a comment\r\nMessageIdTypedef=DWORD\r\n"
        "LanguageNames=(English=0x409:MSG00409 German=0x407:MSG00407)\r\n\r\n"
        "MessageId=0x10\r\nSymbolicName=A\r\nLanguage=German\r\nnein\r\n.\r\n"
        "Language=English\r\n%2, then %1\r\nand ; %3%% %%1\r\n.\r\n"
        "MessageId=\nLanguage=English\nbroken%nline%0 and no more\n.\n"
        "MessageId=40\nLanguage=English\n %12|%4|%. %\n.\n");
    const std::pair<DWORD, std::wstring> cases[] = {
        {16, L"b, then a\r\nand ; c% %1"},
        {17, L"broken\r\nline"},
        {40, L" l|d|. %"},
    };
    for (const auto& [id, text] : cases) {
        EventRecord record;
        record.source = kSource;
        record.event_id = id;
        for (wchar_t letter = L'a'; letter <= L'l'; ++letter)
            record.strings.emplace_back(1, letter);
        EXPECT_EQ(pc.event_log.Text(record), text) << "message " << id;
        record.strings.clear();
        EXPECT_EQ(pc.event_log.Text(record).find(L'%') != std::wstring::npos, id != 17);
    }
}

TEST_F(EventLogTest, ABadMessageFileIsNamedWithItsLine)
{
    const std::pair<const char*, const char*> cases[] = {
        {"MessageId=1\nSeverity=Error\n", ":2: unknown keyword \"Severity\""},
        {"MessageId=1x\n", ":1: a number expected, not \"1x\""},
        {"\nhello\n", ":2: KEYWORD=VALUE expected, not \"hello\""},
        {"Language=English\nx\n.\n", ":1: a text without a MessageId"},
        {"MessageId=1\nLanguage=Latin\nx\n.\n", ":2: unknown language \"Latin\""},
        {"MessageId=1\nLanguage=English\nx\n", ":2: the text has no closing \".\""},
        {"MessageId=1\n\nMessageId=2\n", ":3: message 1 has no text"},
        {"MessageId=1\n", ":1: message 1 has no text"},
        {"MessageId=1\nLanguage=English\n\xC3\xBC\n.\n", ":3: a character that is not ASCII"},
        {"MessageId=1\nLanguage=English\n.\nLanguage=English\n.\n",
         ":5: a second text of message 1"},
        {"LanguageNames=(English)\n", ":1: NAME=NUMBER:FILE expected, not \"English\""},
        {"LanguageNames=English=1:X\n", ":1: LanguageNames=(...) expected"},
    };
    for (const auto& [text, error] : cases) {
        try {
            AddMessages(text);
            ADD_FAILURE() << "this was taken:\n" << text;
        } catch (const std::runtime_error& caught) {
            EXPECT_EQ(caught.what(), m_file.string() + error);
        }
    }
    EXPECT_THROW(pc.event_log.AddMessageFile(kModule, "/no/such/file"), std::runtime_error);
}

class KeptEventLogTest : public ::testing::Test
{
protected:
    ~KeptEventLogTest() override { std::filesystem::remove_all(root); }

    const std::filesystem::path root =
        std::filesystem::temp_directory_path() / ("holv-events-" + std::to_string(::getpid()));
};

TEST_F(KeptEventLogTest, HasItsLastRecordsInTheNextRun)
{
    EventRecord odd{{},
                    L"A\tB",
                    EVENTLOG_ERROR_TYPE,
                    3,
                    0xC0000007,
                    {L"", L"tab\tline\r\nback\\slash \u00e9", L""},
                    {0, 0xAB, '\n'}};
    {
        Machine pc({.free = kRunFree, .root = root});
        for (std::size_t i = 0; i < EventLog::kRecordsKept; ++i) {
            pc.event_log.Add({{}, kSource, 1, 0, 2000, {}, {}});
        }
        pc.event_log.Add(odd);
        odd.clock = pc.clock();
    }
    Machine pc({.free = kRunFree, .root = root});
    EXPECT_EQ(pc.event_log.oldest(), 2u);
    EXPECT_EQ(pc.event_log.records().size(), EventLog::kRecordsKept);
    const auto parts = [](const EventRecord& r) {
        return std::tie(r.clock, r.source, r.type, r.category, r.event_id, r.strings, r.data);
    };
    EXPECT_EQ(parts(pc.event_log.records().back()), parts(odd));
}

TEST_F(KeptEventLogTest, NamesALineThatIsNoRecord)
{
    std::filesystem::create_directories(root);
    const std::string good = "7\t0\t1\t0\t2000\t\tA\n";
    const std::pair<std::string, const char*> wrong[] = {
        {"no record\n", ":1: is no record"},
        {good + "8\t0\t1\t0\t2000\t0\tA\n", ":2: is no record"},
        {good + "8\t0\t1\t70000\t2000\t\tA\n", ":2: is no record"},
        {"7\t0\t1\t0\t2000\t\tA\\x\n", ":1: is no record"},
        {good + good, ":2: does not follow"},
    };
    for (const auto& [lines, says] : wrong) {
        std::ofstream(root / "events.txt") << lines;
        try {
            Machine pc({.free = kRunFree, .root = root});
            ADD_FAILURE() << lines;
        } catch (const std::runtime_error& error) {
            EXPECT_NE(std::string(error.what()).find(std::string("events.txt") + says),
                      std::string::npos)
                << error.what();
        }
    }
}

}  // namespace
