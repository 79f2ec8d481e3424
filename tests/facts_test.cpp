// The small print of the registry, of files and of kernel objects: what the functions answer to bad
// arguments, what they write where they fail, and what becomes of the last error.

#include <string>

#include "platform/file.h"
#include "platform/kernel.h"
#include "platform/owned.h"
#include "platform/registry.h"
#include "platform/virtual/registry/registry.h"
#include "tests/answers.h"

using namespace virtual_pc;

namespace {

using FactsTest = AnswersTest;

// --- The registry ---

constexpr LSTATUS kBadHandle = 6, kInvalid = 87, kDenied = 5, kMissing = 2, kKeyDeleted = 1018;

LSTATUS SetNumber(HKEY key, const wchar_t* name, DWORD value = 1)
{
    return RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value),
                          sizeof(value));
}

OwnedKey Opened(const wchar_t* path, REGSAM access)
{
    OwnedKey key;
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, access, key.Receive()), ERROR_SUCCESS);
    return key;
}

TEST_F(FactsTest, KeysAreOpenedByPathsAndForWhatIsAskedFor)
{
    pc.registry.SetDword(LR"(HKLM\A)", L"n", 1);
    RunAsProcess([] {
        const OwnedKey reads = Opened(L"A", KEY_READ), writes = Opened(L"A", KEY_SET_VALUE);
        HKEY same = nullptr, none = HKEY_CLASSES_ROOT, left = HKEY_CLASSES_ROOT;
        OwnedKey made, copy, trailing;
        Expect({
            ANSWER(SetNumber(reads.Get(), L"n"), kDenied),
            ANSWER(RegDeleteValueW(reads.Get(), L"n"), kDenied),
            ANSWER(RegQueryValueExW(writes.Get(), L"n", 0, 0, 0, 0), kDenied),
            ANSWER(RegGetValueW(writes.Get(), nullptr, L"n", RRF_RT_ANY, 0, 0, 0), kDenied),
            ANSWER(RegCreateKeyW(reads.Get(), L"Below", made.Receive()), ERROR_SUCCESS),
            ANSWER(RegFlushKey(reads.Get()), ERROR_SUCCESS),
            ANSWER(RegOpenKeyExW(reads.Get(), nullptr, 0, KEY_READ, copy.Receive()), 0),
            ANSWER(RegOpenKeyW(HKEY_LOCAL_MACHINE, nullptr, &same), ERROR_SUCCESS),
            ANSWER(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"None", 0, KEY_READ, &none), kMissing),
            ANSWER(RegOpenKeyW(nullptr, L"A", &left), kBadHandle),
            ANSWER(RegOpenKeyW(HKEY_LOCAL_MACHINE, L"A", nullptr), kInvalid),
            ANSWER(RegOpenKeyW(HKEY_LOCAL_MACHINE, LR"(\A)", &left), 161),
            ANSWER(RegCreateKeyW(reads.Get(), LR"(\A)", &left), 161),
            ANSWER(RegOpenKeyW(HKEY_LOCAL_MACHINE, LR"(A\\)", trailing.Receive()), ERROR_SUCCESS),
            ANSWER(RegGetValueW(reads.Get(), nullptr, L"n", RRF_RT_ANY, 0, &same, 0), kInvalid),
            ANSWER(RegQueryValueExW(reads.Get(), L"n", 0, 0, reinterpret_cast<BYTE*>(&same), 0),
                   kInvalid),
            ANSWER(RegFlushKey(nullptr), kBadHandle),
            ANSWER(RegCloseKey(nullptr), kBadHandle),
        });
        EXPECT_EQ(same, HKEY_LOCAL_MACHINE);
        EXPECT_EQ(none, nullptr);
        EXPECT_EQ(left, HKEY_CLASSES_ROOT);
        EXPECT_NE(copy.Get(), reads.Get());
    });
}

TEST_F(FactsTest, ValuesAreWrittenFromMemoryAndDeletedKeysTakeNone)
{
    RunAsProcess([&] {
        OwnedKey key, gone;
        RegCreateKeyW(HKEY_LOCAL_MACHINE, L"A", key.Receive());
        RegCreateKeyW(key.Get(), LR"(B\C)", gone.Receive());
        const std::wstring longest(16'383, L'n'), longer(16'384, L'n');
        HKEY none = nullptr;
        Expect({
            ANSWER(RegSetValueExW(key.Get(), L"n", 0, REG_DWORD, nullptr, 4), 998),
            ANSWER(RegSetValueExW(key.Get(), L"e", 0, REG_SZ, nullptr, 0), ERROR_SUCCESS),
            ANSWER(SetNumber(key.Get(), longest.c_str()), ERROR_SUCCESS),
            ANSWER(SetNumber(key.Get(), longer.c_str()), kInvalid),
            ANSWER(RegDeleteValueW(key.Get(), L"none"), kMissing),
            ANSWER(RegDeleteTreeW(key.Get(), L"None"), kMissing),
            ANSWER(RegDeleteTreeW(nullptr, L"A"), kBadHandle),
            ANSWER(RegDeleteTreeW(key.Get(), nullptr), ERROR_SUCCESS),
            ANSWER(SetNumber(gone.Get(), L"n"), kKeyDeleted),
            ANSWER(RegQueryValueExW(gone.Get(), L"n", 0, 0, 0, 0), kKeyDeleted),
            ANSWER(RegCreateKeyW(gone.Get(), L"D", &none), kKeyDeleted),
            ANSWER(RegFlushKey(gone.Get()), kKeyDeleted),
            ANSWER(RegDeleteValueW(gone.Get(), L"n"), kKeyDeleted),
            ANSWER(RegDeleteTreeW(gone.Get(), L"D"), kKeyDeleted),
            ANSWER(SetNumber(key.Get(), L"n"), ERROR_SUCCESS),
        });
    });
    EXPECT_FALSE(pc.registry.HasKey(LR"(HKLM\A\B)"));
    EXPECT_FALSE(pc.registry.Get(LR"(HKLM\A)", L"e"));
}

void FillKey(Registry& registry)
{
    const wchar_t* key = LR"(HKLM\A)";
    registry.SetDword(key, L"number", 0x11223344);
    registry.Set(key, L"three", {REG_DWORD, {1, 2, 3}});
    registry.Set(key, L"eight", {REG_BINARY, std::vector<BYTE>(8, 0x55)});
    registry.Set(key, L"four", {REG_BINARY, {1, 2, 0, 0}});
    registry.SetString(key, L"text", L"ab");
    RegistryValue open_end = RegistryValue::String(L"ab");
    open_end.data.resize(2 * sizeof(wchar_t));
    registry.Set(key, L"open end", open_end);
    registry.Set(key, L"empty", {REG_SZ, {}});
    registry.Set(key, L"expand", RegistryValue::String(L"%windir%", REG_EXPAND_SZ));
}

constexpr DWORD kUntouched = 0xCCCCCCCC, kWide = sizeof(wchar_t);
const struct
{
    const wchar_t* name;
    DWORD flags;  // 0: by RegQueryValueExW
    DWORD room;   // 0: no buffer
    LSTATUS result;
    DWORD size;  // afterwards
    DWORD data;
    DWORD os = kWindows10;
} kReads[] = {
    {L"number", RRF_RT_REG_SZ, 8, ERROR_UNSUPPORTED_TYPE, 4, 0x11223344},
    {L"number", RRF_RT_DWORD, 4, ERROR_SUCCESS, 4, 0x11223344},
    {L"number", RRF_RT_DWORD, 2, ERROR_MORE_DATA, 4, kUntouched},
    {L"four", RRF_RT_DWORD, 4, ERROR_SUCCESS, 4, 0x0201},
    {L"four", RRF_RT_REG_DWORD, 4, ERROR_UNSUPPORTED_TYPE, 4, 0x0201},
    {L"text", RRF_RT_DWORD, 4, ERROR_UNSUPPORTED_TYPE, 3 * kWide, kUntouched},
    {L"text", RRF_RT_REG_SZ, 3 * kWide, ERROR_SUCCESS, 3 * kWide, L'a'},
    {L"text", RRF_RT_REG_SZ, 2 * kWide, ERROR_MORE_DATA, 3 * kWide, kUntouched},
    {L"open end", RRF_RT_REG_SZ, 3 * kWide, ERROR_SUCCESS, 3 * kWide, L'a'},
    {L"three", RRF_RT_DWORD, 4, ERROR_SUCCESS, 3, 0xCC030201},
    {L"eight", RRF_RT_DWORD, 8, 1629, 8, 0x55555555},
    {L"eight", RRF_RT_DWORD, 4, 1629, 8, kUntouched},
    {L"empty", RRF_RT_REG_SZ, 8, ERROR_SUCCESS, 0, kUntouched},
    {L"expand", RRF_RT_REG_EXPAND_SZ, 0, ERROR_UNSUPPORTED_TYPE, 11 * kWide, kUntouched},
    {L"expand", RRF_RT_REG_EXPAND_SZ, 8, kInvalid, 8, kUntouched, kWindows7},
    {L"none", RRF_RT_ANY, 8, kMissing, 8, kUntouched},
    {L"none", 0, 8, kMissing, 8, kUntouched},
    {L"none", 0, 0, kMissing, 0, kUntouched},
    {L"number", 0, 2, ERROR_MORE_DATA, 4, kUntouched},
    {L"number", 0, 0, ERROR_SUCCESS, 4, kUntouched},
};

TEST_F(FactsTest, AReadTellsMoreThanItsResult)
{
    FillKey(pc.registry);
    for (const auto& c : kReads) {
        pc.os_version = c.os;
        RunAsProcess([&] {
            const OwnedKey open = Opened(L"A", KEY_READ);
            DWORD data[3] = {kUntouched, kUntouched, kUntouched}, size = c.room;
            BYTE* const place = c.room ? reinterpret_cast<BYTE*>(data) : nullptr;
            EXPECT_EQ(
                c.flags ? RegGetValueW(open.Get(), nullptr, c.name, c.flags, nullptr, place, &size)
                        : RegQueryValueExW(open.Get(), c.name, nullptr, nullptr, place, &size),
                c.result)
                << &c - kReads;
            EXPECT_EQ(size, c.size) << &c - kReads;
            EXPECT_EQ(data[0], c.data) << &c - kReads;
        });
    }
}

// --- Files ---

HANDLE OpenFile(const wchar_t* path, DWORD disposition = OPEN_ALWAYS, DWORD access = GENERIC_WRITE)
{
    return CreateFileW(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, disposition, 0,
                       nullptr);
}

TEST_F(FactsTest, PathsThatNameNoFileAreToldApart)
{
    pc.disk.Write(LR"(C:\A.txt)", "a");
    RunAsProcess([] {
        constexpr std::intptr_t kNone = -1;
        Expect({
            ANSWER(OpenFile(nullptr), kNone, 3),
            ANSWER(OpenFile(L""), kNone, 3),
            ANSWER(OpenFile(LR"(C:\A*.txt)"), kNone, 123),
            ANSWER(OpenFile(LR"(C:\A?.txt)"), kNone, 123),
            ANSWER(OpenFile(LR"(C:\A|B)"), kNone, 123),
            ANSWER(OpenFile(LR"(C:\New\)"), kNone, 3),
            ANSWER(OpenFile(LR"(C:\A.txt\B)"), kNone, 3),
            ANSWER(OpenFile(LR"(C:\None\B)"), kNone, 3),
            ANSWER(OpenFile(LR"(C:\None)", OPEN_EXISTING), kNone, 2),
            ANSWER(OpenFile(LR"(C:\)", OPEN_EXISTING), kNone, 3),
            ANSWER(OpenFile(LR"(C:\A.txt)", 0), kNone, 87),
            ANSWER(OpenFile(LR"(C:\A.txt)", 9), kNone, 87),
            ANSWER(OpenFile(LR"(\\.\none)", OPEN_EXISTING), kNone, 2),
            ANSWER(OpenFile(LR"(\\.\pipe\none)", OPEN_EXISTING), kNone, 2),
            ANSWER(CreateDirectoryW(nullptr, nullptr), FALSE, 3),
            ANSWER(CreateDirectoryW(L"", nullptr), FALSE, 3),
            ANSWER(CreateDirectoryW(LR"(C:\A*)", nullptr), FALSE, 123),
            ANSWER(CreateDirectoryW(LR"(C:\A.txt)", nullptr), FALSE, 183),
            ANSWER(CreateDirectoryW(LR"(C:\A.txt\B)", nullptr), FALSE, 3),
            ANSWER(CreateDirectoryW(LR"(C:\None\B)", nullptr), FALSE, 3),
            ANSWER(CreateDirectoryW(LR"(C:\B\)", nullptr), TRUE),
            ANSWER(CreateDirectoryW(LR"(C:\B)", nullptr), FALSE, 183),
            ANSWER(CloseHandle(OpenFile(LR"(C:\A.txt)")), TRUE, 183),
            ANSWER(CloseHandle(OpenFile(LR"(C:\A.txt)", OPEN_EXISTING)), TRUE, 0),
            ANSWER(CloseHandle(OpenFile(LR"(c:\a.TXT)", CREATE_ALWAYS)), TRUE, 183),
            ANSWER(CloseHandle(OpenFile(LR"(C:\C.txt)", CREATE_ALWAYS)), TRUE, 0),
            ANSWER(OpenFile(LR"(C:\B)", OPEN_EXISTING), kNone, 5),
        });
    });
    EXPECT_EQ(pc.disk.Read(LR"(C:\A.txt)"), "") << "it was created anew";
}

TEST_F(FactsTest, FilesAndOtherObjectsAreWrittenAsTheyAllow)
{
    RunAsProcess([] {
        const OwnedFile file(OpenFile(LR"(C:\A.txt)"));
        const OwnedFile reads(OpenFile(LR"(C:\A.txt)", OPEN_EXISTING, GENERIC_READ));
        const OwnedHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        DWORD count = 7;
        const auto write = [&](HANDLE to, const char* data, DWORD size) {
            return WriteFile(to, data, size, &count, nullptr);
        };
        const auto seek = [](HANDLE in, LONG by, DWORD how) {
            return static_cast<LONG>(SetFilePointer(in, by, nullptr, how));
        };
        Expect({
            ANSWER(write(nullptr, "x", 1), FALSE, 6),
            ANSWER(write(event.Get(), "x", 1), FALSE, 6),
            ANSWER(write(reads.Get(), "x", 1), FALSE, 5),
            ANSWER(write(file.Get(), nullptr, 4), FALSE, 1784),
            ANSWER(write(file.Get(), nullptr, 0), TRUE),
            ANSWER(seek(file.Get(), -1, FILE_BEGIN), -1, 131),
            ANSWER(seek(file.Get(), 0, 9), -1, 87),
            ANSWER(seek(nullptr, 0, FILE_BEGIN), -1, 6),
            ANSWER(seek(event.Get(), 0, FILE_BEGIN), -1, 6),
            ANSWER(seek(file.Get(), 3, FILE_BEGIN), 3),
            ANSWER(seek(file.Get(), -1, FILE_CURRENT), 2),
            ANSWER(seek(file.Get(), -3, FILE_CURRENT), -1, 131),
            ANSWER(seek(file.Get(), 100, FILE_END), 100),
            ANSWER(seek(file.Get(), 0, FILE_END), 0),
            ANSWER(FlushFileBuffers(file.Get()), TRUE),
            ANSWER(FlushFileBuffers(reads.Get()), FALSE, 5),
            ANSWER(FlushFileBuffers(event.Get()), FALSE, 6),
            ANSWER(FlushFileBuffers(nullptr), FALSE, 6),
            ANSWER(GetStdHandle(5), -1, 6),
        });
        EXPECT_EQ(count, 0u);
    });
}

// --- The kernel ---

TEST_F(FactsTest, AMissingHandleFailsTheWholeWaitAndATimerIsNoEvent)
{
    RunAsProcess([] {
        const OwnedHandle timer(CreateWaitableTimerW(nullptr, FALSE, nullptr));
        const HANDLE handles[] = {timer.Get(), nullptr};
        Expect({
            ANSWER(WaitForMultipleObjects(2, handles, FALSE, INFINITE), WAIT_FAILED, 6),
            ANSWER(WaitForMultipleObjects(65, handles, FALSE, 0), WAIT_FAILED, 87),
            ANSWER(SetEvent(timer.Get()), FALSE, 6),
        });
    });
}

TEST_F(FactsTest, NamesBelongToOneKindOfObjectInTheirLetterCase)
{
    RunAsProcess([] {
        const OwnedHandle mutex(CreateMutexW(nullptr, FALSE, L"Holv"));
        const auto close = [](HANDLE made) { return made && CloseHandle(made); };
        Expect({
            ANSWER(close(CreateMutexW(nullptr, TRUE, L"Holv")), TRUE, 183),
            ANSWER(close(CreateMutexW(nullptr, TRUE, LR"(Local\Holv)")), TRUE, 183),
            ANSWER(close(CreateMutexW(nullptr, TRUE, LR"(Global\Holv)")), TRUE, 0),
            ANSWER(close(CreateMutexW(nullptr, TRUE, L"HOLV")), TRUE, 0),
            ANSWER(close(CreateEventW(nullptr, TRUE, TRUE, L"Holv")), FALSE, 6),
            ANSWER(close(CreateWaitableTimerW(nullptr, TRUE, L"Holv")), FALSE, 6),
            ANSWER(close(CreateEventW(nullptr, TRUE, TRUE, LR"(A\B)")), FALSE, 3),
            ANSWER(close(CreateMutexW(nullptr, TRUE, LR"(Global\A\B)")), FALSE, 3),
        });
    });
}

}  // namespace
