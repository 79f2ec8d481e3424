// The small print of modules, tokens, devices, services, messages and events: what the functions
// answer to bad arguments, and what becomes of the last error.

#include <string>

#include "platform/device.h"
#include "platform/eventlog.h"
#include "platform/kernel.h"
#include "platform/message.h"
#include "platform/module.h"
#include "platform/owned.h"
#include "platform/power.h"
#include "platform/service.h"
#include "platform/session.h"
#include "platform/virtual/processes/libraries.h"
#include "tests/answers.h"

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

TEST_F(SystemFactsTest, DeviceSetsCheckTheSizesOfTheirRecords)
{
    RunAsProcess([] {
        const GUID none{1, 0, 0, {}};
        const auto sets = [](DWORD flags) {
            return SetupDiGetClassDevsW(nullptr, nullptr, nullptr, flags);
        };
        const OwnedDeviceInfoSet set(sets(DIGCF_ALLCLASSES));
        SP_DEVINFO_DATA sized{}, unsized{};
        sized.cbSize = sizeof(sized);
        SP_DEVICE_INTERFACE_DATA offered{}, small{};
        offered.cbSize = sizeof(offered);
        wchar_t id[80];
        DWORD count = 0;
        Expect({
            ANSWER(sets(0), -1, 87),
            ANSWER(sets(DIGCF_DEVICEINTERFACE), -1, 87),
            ANSWER(SetupDiEnumDeviceInfo(set.Get(), 0, nullptr), FALSE, 87),
            ANSWER(SetupDiEnumDeviceInfo(set.Get(), 0, &unsized), FALSE, 1784),
            ANSWER(SetupDiEnumDeviceInfo(set.Get(), 999, &sized), FALSE, 259),
            ANSWER(SetupDiEnumDeviceInfo(nullptr, 0, &sized), FALSE, 6),
            ANSWER(SetupDiEnumDeviceInterfaces(set.Get(), 0, &none, 0, &small), FALSE, 87),
            ANSWER(SetupDiEnumDeviceInterfaces(set.Get(), 0, &none, 0, nullptr), FALSE, 87),
            ANSWER(SetupDiEnumDeviceInterfaces(set.Get(), 0, &none, 0, &offered), FALSE, 259),
            ANSWER(
                SetupDiGetDeviceInterfaceDetailW(set.Get(), nullptr, nullptr, 0, &count, nullptr),
                FALSE, 87),
            ANSWER(SetupDiDestroyDeviceInfoList(nullptr), FALSE, 6),
            ANSWER(CM_Get_Device_IDW(1, nullptr, 0, 0), 3),
            ANSWER(CM_Get_Device_IDW(0, id, 80, 0), 5),
            ANSWER(DeviceIoControl(nullptr, 0, nullptr, 0, nullptr, 0, &count, nullptr), FALSE, 6),
        });
    });
}

TEST_F(SystemFactsTest, TheManagerRefusesWhatNamesNoService)
{
    RunAsProcess([] {
        const OwnedServiceHandle connected(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
        const OwnedServiceHandle creates(OpenSCManagerW(L"", nullptr, SC_MANAGER_CREATE_SERVICE));
        const auto create = [](SC_HANDLE manager, const wchar_t* name, const wchar_t* path,
                               DWORD type = 0x10, DWORD start = 3) {
            return CreateServiceW(manager, name, nullptr, 0, type, start, 0, path, nullptr, nullptr,
                                  nullptr, nullptr, nullptr);
        };
        SERVICE_STATUS status{};
        const SERVICE_TABLE_ENTRYW empty[1] = {};
        Expect({
            ANSWER(OpenSCManagerW(nullptr, L"none", SC_MANAGER_CONNECT), 0, 123),
            ANSWER(OpenSCManagerW(L"none", nullptr, SC_MANAGER_CONNECT), 0, 1722),
            ANSWER(OpenServiceW(nullptr, nullptr, 0), 0, 6),
            ANSWER(OpenServiceW(connected.Get(), nullptr, 0), 0, 487),
            ANSWER(OpenServiceW(connected.Get(), L"", 0), 0, 123),
            ANSWER(OpenServiceW(connected.Get(), L"none", 0), 0, 1060),
            ANSWER(create(nullptr, nullptr, nullptr), 0, 6),
            ANSWER(create(connected.Get(), nullptr, L"a"), 0, 487),
            ANSWER(create(connected.Get(), L"a", nullptr), 0, 487),
            ANSWER(create(connected.Get(), L"", L"a"), 0, 5),
            ANSWER(create(creates.Get(), L"a/b", L"a"), 0, 123),
            ANSWER(create(creates.Get(), std::wstring(257, L'a').c_str(), L"a"), 0, 123),
            ANSWER(create(creates.Get(), L"a", L"a", 0x30), 0, 87),
            ANSWER(create(creates.Get(), L"a", L"a", 0x10, 0), 0, 87),
            ANSWER(create(creates.Get(), L"a", L"a", 0x10, 1), 0, 87),
            ANSWER(create(creates.Get(), L"a", L"a", 0x10, 6), 0, 87),
            ANSWER(DeleteService(nullptr), FALSE, 6),
            ANSWER(ControlService(nullptr, SERVICE_CONTROL_STOP, &status), FALSE, 6),
            ANSWER(CloseServiceHandle(nullptr), FALSE, 6),
            ANSWER(StartServiceCtrlDispatcherW(empty), FALSE, 87),
            ANSWER(SetServiceStatus(nullptr, &status), FALSE, 6),
        });
    });
}

TEST_F(SystemFactsTest, AnEventLogIsReadOneWayAndWithEveryPlaceGiven)
{
    RunAsProcess([] {
        constexpr DWORD kForwards = EVENTLOG_SEQUENTIAL_READ | EVENTLOG_FORWARDS_READ;
        const OwnedHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        const HANDLE log = OpenEventLogW(nullptr, L"none");
        BYTE bytes[64];
        DWORD count = kBefore, needed = kBefore;
        const auto read = [&](HANDLE from, DWORD flags, BYTE* to, DWORD* place) {
            return ReadEventLogW(from, flags, 0, to, sizeof(bytes), place, &needed);
        };
        Expect({
            ANSWER(OpenEventLogW(nullptr, nullptr), 0, 87),
            ANSWER(OpenEventLogW(L"none", nullptr), 0, 87),
            ANSWER(OpenEventLogW(L"none", L"Application"), 0, 1722),
            ANSWER(read(log, 0, bytes, &count), FALSE, 87),
            ANSWER(read(log, EVENTLOG_SEQUENTIAL_READ, bytes, &count), FALSE, 87),
            ANSWER(read(log, kForwards | 8, bytes, &count), FALSE, 87),
            ANSWER(read(nullptr, kForwards, nullptr, &count), FALSE, 87),
            ANSWER(read(log, kForwards, bytes, nullptr), FALSE, 87),
            ANSWER(read(nullptr, kForwards, bytes, &count), FALSE, 6),
            ANSWER(read(event.Get(), kForwards, bytes, &count), FALSE, 6),
        });
        EXPECT_EQ(count, kBefore);
        EXPECT_EQ(needed, kBefore);
        Expect({
            ANSWER(read(log, kForwards, bytes, &count), FALSE, 38),
            ANSWER(CloseEventLog(log), TRUE),
            ANSWER(CloseEventLog(event.Get()), FALSE, 6),
            ANSWER(CloseEventLog(nullptr), FALSE, 6),
        });
    });
}

TEST_F(SystemFactsTest, QueuesAndEventSourcesRefuseWhatIsNoneOfTheirs)
{
    RunAsProcess([] {
        const auto window = reinterpret_cast<HWND>(std::uintptr_t{0xDEADBE});
        const OwnedHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        MSG message{};
        const auto report = [](HANDLE log) {
            return ReportEventW(log, EVENTLOG_ERROR_TYPE, 0, 0, nullptr, 0, 0, nullptr, nullptr);
        };
        Expect({
            ANSWER(GetMessageW(&message, window, 0, 0), -1, 1400),
            ANSWER(PeekMessageW(&message, window, 0, 0, PM_REMOVE), FALSE, 1400),
            ANSWER(PostThreadMessageW(0xDEADBE, WM_USER, 0, 0), FALSE, 1444),
            ANSWER(RegisterEventSourceW(nullptr, nullptr), 0, 87),
            ANSWER(RegisterEventSourceW(L"none", L"Holv"), 0, 1722),
            ANSWER(DeregisterEventSource(RegisterEventSourceW(L"", L"Holv")), TRUE),
            ANSWER(DeregisterEventSource(nullptr), FALSE, 6),
            ANSWER(report(nullptr), FALSE, 6),
            ANSWER(report(event.Get()), FALSE, 6),
        });
    });
}

}  // namespace
