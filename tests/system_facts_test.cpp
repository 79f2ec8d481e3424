// The small print of modules, tokens and power plans: what the functions answer to bad arguments,
// and what becomes of the last error.

#include "platform/kernel.h"
#include "platform/module.h"
#include "platform/owned.h"
#include "platform/power.h"
#include "platform/session.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/processes/libraries.h"
#include "tests/answers.h"

using virtual_pc::PowerSource;

namespace {

using SystemFactsTest = AnswersTest;

TEST_F(SystemFactsTest, ModulesAndTextsAreLookedForByName)
{
    const auto library = LR"(C:\Some.dll)";
    pc.libraries.on_disk[library] = {};
    RunAsProcess([&] {
        wchar_t text[80];
        const DWORD full = GetModuleFileNameW(nullptr, text, 80);
        const OwnedLibrary loaded(LoadLibraryW(library));
        const auto message = [&](DWORD flags, DWORD error, DWORD room, wchar_t* place) {
            return FormatMessageW(flags, nullptr, error, 0, place, room, nullptr);
        };
        constexpr DWORD kSystem = FORMAT_MESSAGE_FROM_SYSTEM;
        Expect({
            ANSWER(GetModuleFileNameW(nullptr, text, 0), 0, 122),
            ANSWER(GetModuleFileNameW(nullptr, text, 3), 3, 122),
            ANSWER(GetModuleFileNameW(nullptr, text, full), full, 122),
            ANSWER(GetModuleFileNameW(nullptr, text, full + 1), full, 0),
            ANSWER(GetModuleHandleW(nullptr) != nullptr, TRUE),
            ANSWER(GetModuleHandleW(L"none.dll"), 0, 126),
            ANSWER(LoadLibraryW(L"none.dll"), 0, 126),
            ANSWER(LoadLibraryW(L""), 0, 126),
            ANSWER(LoadLibraryW(nullptr), 0, 87),
            ANSWER(GetProcAddress(loaded.Get(), "none"), 0, 127),
            ANSWER(GetProcAddress(nullptr, "none"), 0, 127),
            ANSWER(FreeLibrary(nullptr), FALSE, 6),
            ANSWER(message(kSystem, 0xDEADBEEF, 80, text), 0, 317),
            ANSWER(message(kSystem, 5, 3, text), 0, 122),
            ANSWER(message(kSystem, 5, 0, text), 0, 122),
            ANSWER(message(kSystem, 5, 80, nullptr), 0, 87),
            ANSWER(message(0, 5, 80, text), 0, 87),
            ANSWER(LocalFree(nullptr), 0),
        });
    });
}

TEST_F(SystemFactsTest, TokensAndPrivilegesAreCheckedBeforeTheyAreUsed)
{
    RunAsProcess([] {
        OwnedHandle reads, adjusts, none;
        OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, reads.Receive());
        OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, adjusts.Receive());
        LUID debug{};
        TOKEN_PRIVILEGES wanted{.PrivilegeCount = 1, .Privileges = {{{999, 0}, 2}}};
        const auto adjust = [](HANDLE token, TOKEN_PRIVILEGES* state) {
            return AdjustTokenPrivileges(token, FALSE, state, 0, nullptr, nullptr);
        };
        Expect({
            ANSWER(OpenProcessToken(nullptr, TOKEN_QUERY, none.Receive()), FALSE, 6),
            ANSWER(LookupPrivilegeValueW(nullptr, L"SeNone", &debug), FALSE, 1313),
            ANSWER(LookupPrivilegeValueW(nullptr, nullptr, &debug), FALSE, 1313),
            ANSWER(LookupPrivilegeValueW(nullptr, L"sedebugprivilege", &debug), TRUE),
            ANSWER(adjust(nullptr, &wanted), FALSE, 6),
            ANSWER(adjust(reads.Get(), &wanted), FALSE, 5),
            ANSWER(adjust(adjusts.Get(), nullptr), FALSE, 998),
            ANSWER(adjust(adjusts.Get(), &wanted), TRUE, 1300),
            ANSWER(WTSQueryUserToken(1, nullptr), FALSE, 87),
            ANSWER(TerminateProcess(nullptr, 1), FALSE, 6),
        });
        EXPECT_EQ(debug.LowPart, 20u);
        wanted.Privileges[0].Luid = debug;
        Expect({ANSWER(adjust(adjusts.Get(), &wanted), TRUE, 0)});
    });
}

TEST_F(SystemFactsTest, PlansAreReadWrittenAndActivatedWhileTheyAreThereAndNoPolicyDecides)
{
    const GUID& saver = GUID_MAX_POWER_SAVINGS;
    const GUID& balanced = GUID_TYPICAL_POWER_SAVINGS;
    const GUID mine{0x484F4C56, 0x1111, 0x4000, {0x80}};
    pc.power.FindPlan(saver)->values[GUID_STANDBY_TIMEOUT] = {77, 78};
    pc.power.AddPlan(L"Mine", mine, saver).values.erase(GUID_ALLOW_AWAYMODE);
    RunAsProcess([&] {
        DWORD value = 0;
        const auto read = [&](const GUID& subgroup, const GUID& setting) {
            return PowerReadDCValueIndex(nullptr, &mine, &subgroup, &setting, &value);
        };
        const auto write = [&](DWORD seconds) {
            return PowerWriteACValueIndex(nullptr, &mine, &GUID_SLEEP_SUBGROUP,
                                          &GUID_STANDBY_TIMEOUT, seconds);
        };
        const auto activate = [](const GUID& plan) { return PowerSetActiveScheme(nullptr, &plan); };
        Expect({
            ANSWER(read(GUID_SLEEP_SUBGROUP, GUID_STANDBY_TIMEOUT), 0),
            ANSWER(read(GUID_SLEEP_SUBGROUP, GUID_ALLOW_AWAYMODE), 2),
            ANSWER(read(GUID_VIDEO_SUBGROUP, GUID_STANDBY_TIMEOUT), 2),
            ANSWER(activate(mine), 0),
            ANSWER(write(60), 0),
            ANSWER(pc.power.InForce(GUID_STANDBY_TIMEOUT).value_or(0), 77),
            ANSWER(activate(mine), 0),
            ANSWER(pc.power.InForce(GUID_STANDBY_TIMEOUT).value_or(0), 60),
            ANSWER(pc.power.DeletePlan(mine), FALSE),
            ANSWER(pc.power.SetPolicy(saver), TRUE),
            ANSWER(activate(balanced), 1260),
            ANSWER(pc.power.Activate(balanced), FALSE),
            ANSWER(write(61), 0),
            ANSWER(pc.power.DeletePlan(mine), TRUE),
            ANSWER(write(62), 2),
        });
        EXPECT_EQ(value, 78u) << "copied with the plan";
        EXPECT_TRUE(IsEqualGUID(pc.power.active().guid, saver)) << "the policy's";
        pc.power.EndPolicy();
        Expect({ANSWER(activate(mine), 2), ANSWER(activate(balanced), 0)});
    });
}

}  // namespace
