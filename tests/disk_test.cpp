// The disk, pipes and the console, as a process of the PC uses them.

#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include "platform/module.h"
#include "platform/owned.h"
#include "platform/power.h"
#include "platform/security.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/console/outputs.h"
#include "tests/virtual_pc_test.h"

using namespace virtual_pc;

namespace {

namespace fs = std::filesystem;

constexpr const wchar_t* kFile = LR"(C:\ProgramData\notes.txt)";
constexpr DWORD kPipeBusy = 231;

OwnedFile Open(const wchar_t* path, DWORD disposition = OPEN_ALWAYS, DWORD access = GENERIC_WRITE)
{
    return OwnedFile(CreateFileW(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                 disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
}

// The number of bytes written; on failure the negative error code.
int Write(HANDLE file, std::string_view bytes)
{
    DWORD written = 77;
    if (WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr)) {
        return static_cast<int>(written);
    }
    EXPECT_EQ(written, 0u);
    return -static_cast<int>(GetLastError());
}

class DiskTest : public VirtualPcTest
{
};

TEST_F(DiskTest, PathsAreFoundWhateverTheirLetterCaseAndKeepTheSpellingTheyWereMadeWith)
{
    pc.disk.Write(LR"(C:\Program Files\Orbeq\Straße.TXT)", "here");
    EXPECT_EQ(pc.disk.Read(LR"(c:/PROGRAM FILES\.\orbeq\\straße.txt)"), "here");
    pc.disk.Write(LR"(C:\PROGRAM FILES\orbeq\New.txt)", "there");
    EXPECT_EQ(pc.disk.HostPath(LR"(C:\program files\ORBEQ\new.TXT)"),
              pc.disk.HostPath(LR"(C:\)") + "/Program Files/Orbeq/New.txt");
    EXPECT_EQ(pc.disk.Read(LR"(C:\Program Files\Orbeq)"), std::nullopt) << "a folder is no file";
    EXPECT_EQ(pc.disk.Read(LR"(C:\Program Files\Missing.txt)"), std::nullopt);

    for (const wchar_t* path : {L"", L"C", L"notes.txt", L"C:notes.txt", LR"(D:\notes.txt)",
                                LR"(\notes.txt)", LR"(C:\ProgramData\..\..\etc\passwd)"}) {
        EXPECT_THROW(pc.disk.HostPath(path), std::invalid_argument) << ToUtf8(path);
    }
}

TEST(DiskOfAMachine, IsKeptWhereItHasAPlace)
{
    const fs::path root = fs::temp_directory_path() / ("disk_test." + std::to_string(::getpid()));
    {
        Machine pc({.root = root});
        pc.disk.Write(kFile, "kept");
    }
    EXPECT_EQ(Machine({.root = root}).disk.Read(kFile), "kept");
    fs::remove_all(root);
}

TEST_F(DiskTest, WritesLandAtThePositionAndAreTold)
{
    std::vector<std::string> told;
    pc.journal.Listen([&](const Effect& effect) {
        if (effect.kind != "write") return;
        told.push_back(ToUtf8(effect.Text("path")) + " " + std::to_string(effect.Number("offset")) +
                       " " + ToUtf8(effect.Text("text")));
    });
    RunAsProcess([] {
        const OwnedFile file = Open(kFile);
        EXPECT_EQ(Write(file.Get(), "first "), 6);
        EXPECT_EQ(Write(file.Get(), "second \xFC"), 8);
        SetFilePointer(file.Get(), 0, nullptr, FILE_BEGIN);
        EXPECT_EQ(Write(file.Get(), "FIRST"), 5);
    });
    EXPECT_EQ(pc.disk.Read(kFile), "FIRST second \xFC");
    const std::string path = ToUtf8(kFile);
    EXPECT_EQ(told, (std::vector<std::string>{path + " 0 first ", path + " 6 second ü",
                                              path + " 0 FIRST"}));
}

TEST_F(DiskTest, AFullDiskTakesWhatFitsAndStillLetsOldBytesBeWrittenOver)
{
    pc.disk.space_left = 5;
    RunAsProcess([] {
        const OwnedFile file = Open(kFile);
        EXPECT_EQ(Write(file.Get(), "123"), 3);
        SetFilePointer(file.Get(), 1, nullptr, FILE_BEGIN);
        EXPECT_EQ(Write(file.Get(), "abcdef"), 4) << "two old bytes and two new ones";
        EXPECT_EQ(Write(file.Get(), "g"), -ERROR_DISK_FULL);
        SetFilePointer(file.Get(), 3, nullptr, FILE_BEGIN);
        EXPECT_EQ(Write(file.Get(), "yz."), 2);
    });
    EXPECT_EQ(pc.disk.Read(kFile), "1abyz");
    EXPECT_EQ(pc.disk.space_left, 0u);
}

TEST_F(DiskTest, APipeTakesOneWriterUntilItsListenerHangsUp)
{
    constexpr const wchar_t* kPipe = LR"(\\.\PIPE\holv)";
    const auto listener = pc.disk.Listen(L"Holv");
    EXPECT_THROW(pc.disk.Listen(L"HOLV"), std::invalid_argument);
    RunAsProcess([&] {
        OwnedFile first = Open(kPipe, OPEN_EXISTING);
        EXPECT_TRUE(listener->connected);
        EXPECT_FALSE(Open(kPipe, OPEN_EXISTING)) << "its one end is taken";
        EXPECT_EQ(GetLastError(), kPipeBusy);
        EXPECT_EQ(Write(first.Get(), "one\r\r"), 5);
        first.Reset();
        EXPECT_FALSE(listener->connected);

        const OwnedFile second = Open(kPipe, OPEN_EXISTING);
        EXPECT_EQ(Write(second.Get(), "two"), 3);
        pc.disk.Hangup(listener);
        EXPECT_EQ(Write(second.Get(), "three"), -ERROR_NO_DATA);
        EXPECT_FALSE(Open(kPipe, OPEN_EXISTING));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
    });
    EXPECT_EQ(listener->heard, "one\r\rtwo");
}

TEST_F(DiskTest, ProgramsShareAFileAsBothAllow)
{
    constexpr DWORD kRead = GENERIC_READ, kWrite = GENERIC_WRITE;
    const struct
    {
        DWORD access, share;
        DWORD other_access, other_share;
        bool opens;
    } cases[] = {
        {kWrite, FILE_SHARE_READ | FILE_SHARE_WRITE, kWrite, FILE_SHARE_WRITE, true},
        {kWrite, FILE_SHARE_READ, kWrite, FILE_SHARE_WRITE, false},
        {kWrite, FILE_SHARE_WRITE, kWrite, FILE_SHARE_READ, false},
        {kRead, FILE_SHARE_READ, kRead, FILE_SHARE_READ, true},
        {kRead, FILE_SHARE_READ, kRead, 0, false},
        {kRead, 0, kRead | kWrite, FILE_SHARE_READ | FILE_SHARE_WRITE, false},
    };
    pc.disk.Write(kFile, "here");
    for (const auto& c : cases) {
        auto other = pc.disk.OpenElsewhere(kFile, c.other_access, c.other_share);
        RunAsProcess([&] {
            const auto open = [&] {
                return OwnedFile(CreateFileW(LR"(c:\PROGRAMDATA\notes.txt)", c.access, c.share,
                                             nullptr, OPEN_EXISTING, 0, nullptr));
            };
            EXPECT_EQ(static_cast<bool>(open()), c.opens) << &c - cases;
            EXPECT_TRUE(c.opens || GetLastError() == 32);
            other.reset();
            const OwnedFile first = open();
            EXPECT_TRUE(first);
        });
    }
}

TEST_F(DiskTest, AFileHasAnOwnerAndTheRightsOfItsFolder)
{
    RunAsProcess([] {
        EXPECT_TRUE(CreateDirectoryW(LR"(C:\Folder)", nullptr));
        EXPECT_TRUE(Open(LR"(C:\Folder\old.txt)"));
    });
    EXPECT_EQ(pc.disk.OwnerOf(LR"(C:\Folder\old.txt)"), L"SYSTEM");
    pc.disk.SetRights(LR"(C:\Folder)", {L"alice", std::vector<std::wstring>{L"alice"}});
    RunAsProcess([] {
        for (const wchar_t* path : {LR"(C:\Folder\old.txt)", LR"(C:\Folder\new.txt)"}) {
            EXPECT_FALSE(Open(path));
            EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
        }
        EXPECT_TRUE(Open(LR"(C:\Folder\old.txt)", OPEN_EXISTING, GENERIC_READ));
        EXPECT_FALSE(CreateDirectoryW(LR"(C:\Folder\Below)", nullptr));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
    });
    pc.Install(LR"(C:\Editor.exe)", [] {
        PVOID rights = nullptr;
        ConvertStringSecurityDescriptorToSecurityDescriptorW(L"O:BA", SDDL_REVISION_1, &rights,
                                                             nullptr);
        SECURITY_ATTRIBUTES attributes{sizeof(attributes), rights, FALSE};
        EXPECT_FALSE(CreateDirectoryW(LR"(C:\Folder\Given)", &attributes));
        EXPECT_EQ(GetLastError(), DWORD{1307}) << "a user gives nothing to administrators";
        EXPECT_FALSE(SetFileSecurityW(LR"(C:\Windows)", DACL_SECURITY_INFORMATION, rights));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
        LocalFree(rights);
        EXPECT_FALSE(Open(LR"(C:\Windows\new.txt)"));
        return Open(LR"(C:\Folder\new.txt)") ? 0 : 1;
    });
    Process* editor = nullptr;
    {
        const Hold hold(pc);
        editor =
            pc.StartInstalled(LR"(C:\Editor.exe)", L"", Launch{.session = 1, .user = L"Alice"});
    }
    pc.RunUntilEnd(*editor);
    EXPECT_EQ(editor->exit_code(), 0);
    EXPECT_EQ(pc.disk.OwnerOf(LR"(C:\Folder\new.txt)"), L"Alice");
}

TEST_F(DiskTest, TheConsoleGetsUtf8)
{
    std::wstring printed;
    pc.journal.Listen([&](const Effect& effect) {
        if (effect.kind == "console") printed += effect.Text("text");
    });
    constexpr wchar_t kText[] = L"a ü € 😀";
    constexpr std::string_view kBytes = "a ü € 😀";
    RunAsProcess([&] {
        const int size = static_cast<int>(kBytes.size());
        EXPECT_EQ(Write(GetStdHandle(STD_OUTPUT_HANDLE), kBytes), size);
    });
    EXPECT_EQ(pc.outputs.console(), kBytes);
    EXPECT_EQ(printed, kText);
    for (const char* bad : {"\x80", "\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xF8", "\xE2\x82"}) {
        EXPECT_EQ(FromUtf8(bad).front(), L'\xFFFD') << "not UTF-8, number " << bad[0] + 0;
    }
}

TEST_F(DiskTest, TheDataFolderIsToldInMemoryThatIsCounted)
{
    left_open_is_expected = true;
    const fs::path folder = pc.disk.HostPath(LR"(C:\ProgramData)");
    PWSTR path = nullptr;
    RunAsProcess([&] {
        const auto ask = [&](DWORD flags) {
            return SHGetKnownFolderPath(FOLDERID_ProgramData, flags, nullptr, &path);
        };
        fs::remove(folder);
        EXPECT_EQ(ask(0), static_cast<HRESULT>(0x80070002));
        EXPECT_EQ(path, nullptr);
        EXPECT_EQ(ask(KF_FLAG_CREATE), S_OK);
        EXPECT_STREQ(path, LR"(C:\ProgramData)");
    });
    EXPECT_TRUE(fs::is_directory(folder));
    EXPECT_EQ(LeftOpenBy(*pc.processes().front()), "task memory , ");
}

}  // namespace
