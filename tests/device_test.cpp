// The platform device: how it is found and opened, and what it is told, byte by byte.

#include <algorithm>
#include <iterator>

#include "platform/virtual/base/text.h"
#include "platform/virtual/devices/device.h"
#include "power/driver_api.h"
#include "tests/virtual_pc_test.h"

using namespace virtual_pc;

namespace {

constexpr GUID kHolvClass{
    0xD6E2A4C1, 0x5B7F, 0x4E39, {0x9C, 0x0D, 0x3F, 0x81, 0xB2, 0xA7, 0xE6, 0x45}};
constexpr GUID kOtherClass{0x11111111, 0x2222, 0x3333, {1, 2, 3, 4, 5, 6, 7, 8}};
constexpr const wchar_t* kId = LR"(ACPI\QRX5071\2&0)";
constexpr const wchar_t* kPath = LR"(\\?\acpi#qrx5071#2&0#{D6E2A4C1-5B7F-4E39-9C0D-3F81B2A7E645})";
constexpr DWORD kNotConnected = 1167;

// Tell is called within a process, and all of a story's within the same one: the log writer lives
// as long as its process.
class DeviceTest : public VirtualPcTest
{
protected:
    bool Present()
    {
        bool present = false;
        RunAsProcess([&] { present = IsHolvDevicePresent(); });
        return present;
    }

    // Opens the device and tells it a mode. The messages and errors that the log got meanwhile;
    // empty when there were none.
    std::string Tell(DWORD mode)
    {
        Heard log(pc, Heard::From::log_file);
        log.Forget();
        CDriverApi driver;
        m_initialized = driver.Initialize();
        m_told = m_initialized && driver.SetNeverSleepMode(mode);
        std::string said;
        for (const std::string& line : log.Said()) {
            if (line.starts_with("*****")) said += line.substr(0, line.find('\n'));
        }
        return said;
    }

    // The open handles of this facet.
    std::ptrdiff_t OpenNow() const
    {
        const Hold hold(pc);
        return std::ranges::count_if(pc.handles.List(), [](const LeftOpen& open) {
            return open.kind.starts_with("device");
        });
    }

    bool m_initialized = false;
    bool m_told = false;
};

TEST_F(DeviceTest, IsPresentWhenAnyPresentDevicesIdHoldsItsNameInItsLetterCase)
{
    EXPECT_FALSE(Present()) << "a PC without devices";
    const std::pair<const wchar_t*, bool> cases[] = {
        {LR"(acpi\qrx5071\2&0)", false},        {LR"(ACPI\QRX507\2&0)", false},
        {LR"(ACPI#QRX5071#2&0)", false},        {LR"(ACPI\QRX5071)", true},
        {LR"(ACPI\QRX5071\2&DABA3FF&0)", true}, {LR"(ROOT\ACPI\QRX50712\0000)", true},
    };
    for (const auto& [id, found] : cases) {
        Device& device = pc.devices.Add(id);
        pc.devices.Add(LR"(PCI\VEN_1234\3&1)");
        EXPECT_EQ(Present(), found) << ToUtf8(id);
        device.SetPresent(false);
        EXPECT_FALSE(Present()) << ToUtf8(id) << ", pulled";
    }
}

TEST_F(DeviceTest, IsFoundBehindADeviceThatDoesNotTellItsId)
{
    for (const wchar_t* id : {LR"(PCI\VEN_1234\3&1)", LR"(USB\VID_0001\5&2)", kId}) {
        pc.devices.Add(id);
    }
    const std::tuple<const char*, std::uint64_t, bool> cases[] = {
        {"CM_Get_Device_IDW", 1, true},     {"CM_Get_Device_IDW", 2, true},
        {"CM_Get_Device_IDW", 3, false},    {"SetupDiEnumDeviceInfo", 3, false},
        {"SetupDiGetClassDevsW", 1, false},
    };
    for (const auto& [function, nth, found] : cases) {
        pc.faults.Set(function, {.first = nth});
        EXPECT_EQ(Present(), found) << function << " fails the " << nth << ". time";
        pc.faults.ClearAll();
    }
    EXPECT_EQ(LogBytes(), "");
    // The longest id that is allowed, and a broken driver's longer one.
    for (const auto& [length, found] : {std::pair{200u, true}, {201u, false}}) {
        Device& device = pc.devices.Add(std::wstring(length - 12, L'X') + LR"(ACPI\QRX5071)");
        pc.devices.Find(kId)->SetPresent(false);
        EXPECT_EQ(Present(), found) << "an id of " << device.instance_id().size();
        device.SetPresent(false);
    }
}

TEST_F(DeviceTest, EachModeReachesItAsEightBytes)
{
    const Device& device = pc.devices.AddHolvDevice();
    const std::pair<DWORD, std::vector<BYTE>> cases[] = {
        {1, {0x53, 0x4E, 0x53, 0x4D, 1, 0, 0, 0}},
        {3, {0x53, 0x4E, 0x53, 0x4D, 3, 0, 0, 0}},
        {0, {0x53, 0x4E, 0x53, 0x4D, 0, 0, 0, 0}},
        {0x8A0B0C0D, {0x53, 0x4E, 0x53, 0x4D, 0x0D, 0x0C, 0x0B, 0x8A}},
    };
    RunAsProcess([&] {
        for (const auto& [mode, bytes] : cases) {
            EXPECT_EQ(Tell(mode), "");
            EXPECT_TRUE(m_told);
            ASSERT_FALSE(device.Requests().empty());
            EXPECT_EQ(device.Requests().back().code, 0x9C412000u);
            EXPECT_EQ(device.Requests().back().bytes, bytes);
            EXPECT_EQ(device.Mode(), mode);
        }
    });
    EXPECT_EQ(device.Requests().size(), std::size(cases));
}

TEST_F(DeviceTest, OnlyTheFirstInterfaceOfItsClassThatAPresentDeviceOffersIsUsed)
{
    Device& other = pc.devices.Add(LR"(PCI\VEN_1234\3&1)");
    other.AddInterface(kOtherClass);
    Device& pulled = pc.devices.AddHolvDevice(LR"(ACPI\QRX5071\1&0)");
    pulled.SetPresent(false);
    Device& first = pc.devices.Add(kId);
    first.AddInterface(kOtherClass);
    first.AddInterface(kHolvClass, LR"(\\?\first)");
    first.AddInterface(kHolvClass, LR"(\\?\second)");
    Device& next = pc.devices.AddHolvDevice(LR"(ACPI\QRX5071\3&0)");

    RunAsProcess([&] {
        EXPECT_EQ(Tell(1), "");
        struct Listening : CDriverApi
        {
            BOOL OpenDriver(LPCWSTR path) override
            {
                EXPECT_STREQ(path, LR"(\\?\first)");
                return FALSE;
            }
        } listening;
        EXPECT_FALSE(listening.Initialize());
        first.FailOpening(ERROR_ACCESS_DENIED);
        EXPECT_EQ(Tell(1), "*****Failed to open the driver, error=0x5") << "no other one is tried";
    });
    EXPECT_EQ(first.Requests().size(), 1u);
    for (const Device* device : {&other, &pulled, &next}) EXPECT_TRUE(device->Requests().empty());
}

TEST_F(DeviceTest, EachFailingStepIsNamedWithItsErrorAndLeavesNothingOpen)
{
    const std::string kInformation = "*****Unable to get device information, error=";
    const std::string kEnumerate = "*****Unable to enumerate device interfaces, error=";
    const std::string kSize = "*****Unable to get device interfaces detail data size, error=";
    const std::string kDetail = "*****Unable to get device interfaces detail, error=";
    const std::string kOpen = "*****Failed to open the driver, error=";
    const std::string kSend = "*****SNSM operation Failed, Error=";

    const struct
    {
        const char* function;
        std::uint64_t nth;
        DWORD error;
        std::string said;
    } cases[] = {
        {"SetupDiGetClassDevsW", 1, 1784, kInformation + "0x6f8"},
        {"SetupDiEnumDeviceInterfaces", 1, 13, kEnumerate + "0xd"},
        {"SetupDiGetDeviceInterfaceDetailW", 1, 5, kSize + "0x5"},
        // The query for the size fails, and the buffer without it is too small.
        {"SetupDiGetDeviceInterfaceDetailW", 1, 122, kDetail + "0x7a"},
        {"SetupDiGetDeviceInterfaceDetailW", 2, 31, kDetail + "0x1f"},
        {"DeviceIoControl", 1, 1167, kSend + "0x48f"},
    };
    RunAsProcess([&] {
        EXPECT_EQ(Tell(1), kEnumerate + "0x103") << "no device offers the interface";
        Device& device = pc.devices.AddHolvDevice();
        for (const auto& each : cases) {
            SCOPED_TRACE(each.function + (" " + std::to_string(each.nth)));
            pc.faults.Set(each.function, {.error = each.error, .first = each.nth});
            EXPECT_EQ(Tell(1), each.said);
            EXPECT_FALSE(m_told);
            EXPECT_EQ(m_initialized, each.function == std::string("DeviceIoControl"));
            EXPECT_EQ(OpenNow(), 0);
            pc.faults.ClearAll();
        }
        device.FailOpening(ERROR_ACCESS_DENIED);
        EXPECT_EQ(Tell(1), kOpen + "0x5");
        device.FailOpening(NO_ERROR);
        EXPECT_TRUE(device.Requests().empty());

        device.FailRequests(ERROR_INVALID_FUNCTION);
        EXPECT_EQ(Tell(2), kSend + "0x1");
        device.FailRequests(NO_ERROR);
        EXPECT_EQ(device.Mode(), std::nullopt) << "refused";
        EXPECT_EQ(device.Requests().back().error, static_cast<DWORD>(ERROR_INVALID_FUNCTION));
        pc.devices.size_query_succeeds = true;
        EXPECT_EQ(Tell(3), "") << "a size that is told without a failure is as good";
        EXPECT_EQ(device.Mode(), 3u);
    });
}

TEST_F(DeviceTest, APathThatDoesNotFitIsRefusedRatherThanCut)
{
    RunAsProcess([&] {
        for (const std::size_t length : {259, 260, 2000}) {
            Device& device = pc.devices.Add(kId + std::to_wstring(length));
            device.AddInterface(kHolvClass, LR"(\\?\)" + std::wstring(length - 4, L'x'));
            const bool fits = length < 260;
            EXPECT_EQ(Tell(2),
                      fits ? "" : "*****Unable to get device interfaces detail, error=0x7a");
            EXPECT_EQ(device.Mode().has_value(), fits) << length;
            device.SetPresent(false);
        }
    });
}

TEST_F(DeviceTest, ClosesOnceAndCanBeOpenedAgain)
{
    Device& device = pc.devices.AddHolvDevice();
    RunAsProcess([&] {
        CDriverApi driver;
        EXPECT_FALSE(driver.SetNeverSleepMode(1)) << "not open yet";
        EXPECT_TRUE(driver.OpenDriver(kPath)) << "in another letter case";
        EXPECT_TRUE(driver.OpenDriver(kPath)) << "the first handle is closed";
        EXPECT_TRUE(driver.SetNeverSleepMode(1));
        driver.CloseDriver();
        driver.CloseDriver();
        EXPECT_FALSE(driver.SetNeverSleepMode(2)) << "closed";
        EXPECT_TRUE(driver.Initialize());
        device.SetPresent(false);
        EXPECT_FALSE(driver.SetNeverSleepMode(3));
        EXPECT_EQ(GetLastError(), kNotConnected) << "pulled while it is open";
        EXPECT_FALSE(driver.OpenDriver(kPath));
    });
    EXPECT_EQ(device.Mode(), 1u);
}

}  // namespace
