// Where the log and the history are written: in folders of their own, and nowhere else.

#include <filesystem>

#include "history/history_writer.h"
#include "log/log.h"
#include "log/rights.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/console/outputs.h"
#include "tests/fresh_service.h"
#include "tests/virtual_pc_test.h"

using namespace virtual_pc;

namespace {

class LogPlaceTest : public VirtualPcTest
{
protected:
    LogPlaceTest()
    {
        g_dwLoggingLevel = 6;
        g_dwLoggingEnabled = kLogToFile;
    }

    const auto& Debug() const { return pc.outputs.debug(); }
};

TEST_F(LogPlaceTest, OnlyTheSystemAndAdministratorsMayWriteTheFoldersThatItMakes)
{
    RunAsProcess([] {
        Log(1, L"F", L"said");
        HistoryWriter().Append(UtcTime{0}, L"{}");
    });
    for (const wchar_t* folder :
         {LR"(C:\ProgramData\Orbeq\Holv)", LR"(C:\ProgramData\Orbeq\Holv\History)"}) {
        EXPECT_EQ(pc.disk.OwnerOf(folder), L"Administrators");
        const std::string host = pc.disk.HostPath(folder);
        EXPECT_FALSE(pc.disk.rights.MayWrite(host + "/new.txt", L"alice"));
        EXPECT_TRUE(pc.disk.rights.MayWrite(host + "/new.txt", L"SYSTEM"));
    }
}

TEST(RightsTest, OthersAreAllButTheSystemAdministratorsAndTheOwner)
{
    const std::tuple<const wchar_t*, bool, bool> cases[] = {
        {L"O:BAD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)", false, false},
        {L"O:SYD:AI(A;ID;FA;;;SY)(A;CIID;DCLCRPCR;;;BU)", true, false},
        {L"O:SYD:(A;OICIIOID;FA;;;BU)(A;CIIO;GA;;;CO)", false, false},
        {L"O:SYD:(A;;0x1301bf;;;AU)", true, true},
        {L"O:SYD:(A;;CCDCLCSWRPWPDTLOCRSDRCWDWO;;;WD)", true, true},
        {L"O:SYD:(A;;FW;;;WD)", true, false},
        {L"O:SYD:(A;;FRFX;;;WD)(D;;FA;;;WD)", false, false},
        {L"O:SYD:(A;;GA;;;S-1-5-21-1-2-3-1001)", true, true},
        {L"O:S-1-5-21-1-2-3-1001D:(A;;FA;;;S-1-5-21-1-2-3-1001)", false, false},
        {L"O:SYD:(A;;ZZ;;;BU)", true, true},
        {L"O:SYD:(XA;;FA;;;WD;(@User.Title==\"x\"))", true, true},
        {L"O:SYD:NO_ACCESS_CONTROL", true, true},
        {L"O:SYD:P", false, false},
        {L"O:SY", true, true},
    };
    for (const auto& [descriptor, write, replace] : cases) {
        EXPECT_EQ(LetsOthers(descriptor, Lets::write), write) << ToUtf8(descriptor);
        EXPECT_EQ(LetsOthers(descriptor, Lets::replace), replace) << ToUtf8(descriptor);
    }
    EXPECT_FALSE(IsOwnedByTheSystem(LR"(C:\A)", L"D:P")) << "whose it is, is not known";
    EXPECT_TRUE(IsOwnedByTheSystem(LR"(C:\)", L"O:S-1-5-21-1-2-3-1001D:P")) << "who has the disk";
    EXPECT_EQ(FolderOf(LR"(C:\A\B.txt)"), LR"(C:\A)");
    EXPECT_EQ(FolderOf(LR"(C:\A)"), LR"(C:\)");
    EXPECT_EQ(FolderOf(LR"(C:\)"), L"");
}

constexpr const wchar_t* kHistoryFile = LR"(C:\ProgramData\Orbeq\Holv\History\01-01.jsonl)";

enum class Wrong
{
    link,
    junction_to_nowhere,
    alices_own,
    second_name,
};

class WrongPlaceTest : public LogPlaceTest,
                       public testing::WithParamInterface<std::pair<const wchar_t*, Wrong>>
{
protected:
    const std::wstring place = GetParam().first;
    const std::filesystem::path target = pc.disk.HostPath(LR"(C:\Windows\Elsewhere)");

    void PutWrongThing()
    {
        const bool file = place.find(L'.') != place.npos;
        const std::wstring to =
            file ? LR"(C:\Windows\Elsewhere\new.txt)" : LR"(C:\Windows\Elsewhere)";
        std::filesystem::create_directories(target);
        switch (GetParam().second) {
            case Wrong::link:
                return pc.disk.Link(place, to);
            case Wrong::junction_to_nowhere:
                return pc.disk.Link(place, to + LR"(\None)");
            case Wrong::alices_own:
                pc.disk.Write(place + (file ? L"" : LR"(\mine.txt)"), "");
                return pc.disk.SetRights(
                    place, {L"alice", std::vector<std::wstring>{L"alice", L"SYSTEM"}});
            case Wrong::second_name:
                pc.disk.Write(LR"(C:\Windows\system.ini)", "");
                pc.disk.Write(place, "");
                std::filesystem::remove(pc.disk.HostPath(place));
                std::filesystem::create_hard_link(pc.disk.HostPath(LR"(C:\Windows\system.ini)"),
                                                  pc.disk.HostPath(place));
        }
    }
    // The bytes of all files.
    static std::uintmax_t BytesIn(const std::filesystem::path& folder)
    {
        std::uintmax_t bytes = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
            if (entry.is_regular_file()) bytes += entry.file_size();
        }
        return bytes;
    }
};

INSTANTIATE_TEST_SUITE_P(
    Places, WrongPlaceTest,
    testing::Values(std::pair(LR"(C:\ProgramData\Orbeq)", Wrong::link),
                    std::pair(LR"(C:\ProgramData\Orbeq\Holv)", Wrong::link),
                    std::pair(LR"(C:\ProgramData\Orbeq\Holv\HOLVLog.txt)", Wrong::link),
                    std::pair(LR"(C:\ProgramData\Orbeq\Holv\History)", Wrong::link),
                    std::pair(LR"(C:\ProgramData\Orbeq)", Wrong::junction_to_nowhere),
                    std::pair(LR"(C:\ProgramData\Orbeq\Holv)", Wrong::junction_to_nowhere),
                    std::pair(LR"(C:\ProgramData\Orbeq)", Wrong::alices_own),
                    std::pair(LR"(C:\ProgramData\Orbeq\Holv)", Wrong::alices_own),
                    std::pair(LR"(C:\ProgramData\Orbeq\Holv\HOLVLog.txt)", Wrong::alices_own),
                    std::pair(LR"(C:\ProgramData\Orbeq\Holv\HOLVLog.txt)", Wrong::second_name),
                    std::pair(LR"(C:\ProgramData\Orbeq\Holv\History)", Wrong::alices_own),
                    std::pair(kHistoryFile, Wrong::link),
                    std::pair(kHistoryFile, Wrong::alices_own),
                    std::pair(kHistoryFile, Wrong::second_name)));

TEST_P(WrongPlaceTest, NothingIsWrittenThereUntilItIsRight)
{
    PutWrongThing();
    const bool of_history = place.find(L"History") != place.npos, of_log = place.ends_with(L".txt");
    RunAsProcess([&] {
        for (int i = 0; i < 2 && !of_history; ++i) Log(1, L"F", L"said");
        const DWORD outputs =
            g_dwLoggingEnabled.exchange(0);  // of the failure that the history tells
        if (!of_log) HistoryWriter().Append(UtcTime{0}, L"{}");
        g_dwLoggingEnabled = outputs;
    });
    for (const wchar_t* folder : {LR"(C:\ProgramData)", LR"(C:\Windows)"}) {
        EXPECT_EQ(BytesIn(pc.disk.HostPath(folder)), 0u);
    }
    EXPECT_TRUE(std::filesystem::is_empty(target));
    ASSERT_EQ(Debug().size(), std::size_t{1});
    EXPECT_NE(Debug().back().text.find(place), std::wstring::npos);

    // The next message tries again.
    std::filesystem::remove_all(pc.disk.HostPath(place));
    RunAsProcess([] {
        Log(1, L"F", L"at last");
        HistoryWriter().Append(UtcTime{kUnitsPerDay - 1}, L"{}");  // of the same day
    });
    EXPECT_NE(LogBytes().find("at last"), std::string::npos);
    EXPECT_EQ(pc.disk.Read(kHistoryFile), "{}\n");
}

// A place of which it cannot be learned who may write it is none.
TEST_F(LogPlaceTest, NothingIsWrittenWhereThePlaceCannotBeLookedAt)
{
    for (const char* function :
         {"GetFileAttributesW", "GetFileSecurityW", "GetFileInformationByHandle",
          "ConvertSecurityDescriptorToStringSecurityDescriptorW",
          "ConvertStringSecurityDescriptorToSecurityDescriptorW"}) {
        bool struck = true;
        for (std::uint64_t nth = 1; struck; ++nth) {
            FreshService();
            g_dwLoggingEnabled = kLogToFile;
            std::filesystem::remove_all(pc.disk.HostPath(LR"(C:\ProgramData\Orbeq)"));
            const std::uint64_t before = pc.faults.CallsOf(function);
            pc.faults.Set(function, {.error = ERROR_ACCESS_DENIED, .first = nth});
            RunAsProcess([] { Log(1, L"F", L"said"); });
            struck = pc.faults.CallsOf(function) - before >= nth;
            pc.faults.ClearAll();
            EXPECT_EQ(LogBytes().empty(), struck) << function << " " << nth;
        }
    }
}

TEST_F(LogPlaceTest, AFullDiskTearsOneLineOfTheHistoryAndEachFailureIsToldOnce)
{
    RunAsProcess([&] {
        Log(1, L"F", L"The log makes the folder that both are in");
        g_dwLoggingEnabled = kLogToDebugger;
        HistoryWriter history;
        for (const wchar_t* line : {L"{1}", L"{22}", L"{3}", L"{4}", L"{55}"}) {
            const bool full = std::wcslen(line) > 3;
            pc.disk.space_left = full ? std::optional<std::uint64_t>(2) : std::nullopt;
            history.Append(UtcTime{0}, line);
            if (full) history.Append(UtcTime{0}, line);
        }
    });
    EXPECT_EQ(pc.disk.Read(kHistoryFile), "{1}\n{2\n{3}\n{4}\n{5");
    EXPECT_EQ(heard.Times("Unable to write the history, GLE=112"), 2);
}

TEST_F(LogPlaceTest, ALineThatHasNoPlaceOnItsDayIsNotWrittenOnTheDayBefore)
{
    RunAsProcess([&] {
        Log(1, L"F", L"The log makes the folder that both are in");
        HistoryWriter history;
        // Links are looked for at two folders and theirs, and at the file.
        for (std::uint64_t nth = 1; nth <= 5; ++nth) {
            history.Append(UtcTime{0}, L"{}");
            pc.faults.Set("GetFileAttributesW", {.error = ERROR_ACCESS_DENIED, .first = nth});
            history.Append(UtcTime{kUnitsPerDay}, L"{1}");
        }
    });
    EXPECT_EQ(pc.disk.Read(kHistoryFile), "{}\n{}\n{}\n{}\n{}\n");
}

TEST_F(LogPlaceTest, AFolderOfTheSystemsThatUsersMayWriteIsClosedToThem)
{
    const std::wstring folder = LR"(C:\ProgramData\Orbeq\Holv)";
    pc.disk.Write(folder + LR"(\HOLVLog.txt)", "");
    pc.disk.SetRights(folder, {L"SYSTEM", std::vector<std::wstring>{L"SYSTEM", L"Users"}});
    const std::string host = pc.disk.HostPath(folder);
    ASSERT_TRUE(pc.disk.rights.MayWrite(host, L"alice"));
    pc.faults.Set("SetFileSecurityW", {.error = ERROR_ACCESS_DENIED, .count = 1});
    RunAsProcess([] {
        Log(1, L"F", L"in a folder that stays open to users");
        Log(1, L"F", L"said");
    });
    EXPECT_FALSE(pc.disk.rights.MayWrite(host, L"alice"));
    EXPECT_TRUE(pc.disk.rights.MayWrite(host, L"SYSTEM"));
    EXPECT_NE(LogBytes().find("said"), std::string::npos);
    EXPECT_EQ(LogBytes().find("stays open"), std::string::npos);
}

}  // namespace
