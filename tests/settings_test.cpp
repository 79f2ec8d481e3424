// The settings: which source wins, what is bounded, and what happens when the registry fails.

#include "settings/settings.h"

#include <algorithm>

#include "platform/owned.h"
#include "platform/virtual/eventlog/event_log.h"
#include "platform/virtual/registry/registry.h"
#include "settings/settings_store.h"
#include "tests/all_settings.h"
#include "tests/virtual_pc_test.h"

using namespace virtual_pc;

namespace {

class SettingsTest : public VirtualPcTest
{
protected:
    void Load()
    {
        RunAsProcess([] { RegInit(); });
    }
    // What `name` loads as with one value in the User key.
    DWORD LoadedAs(const NamedSetting& setting, const RegistryValue& user)
    {
        pc.registry.Set(kUserKey, setting.name, user);
        Load();
        pc.registry.DeleteValue(kUserKey, setting.name);
        return setting.global;
    }
    bool LogSaid(std::string_view text) const { return LogBytes().find(text) != std::string::npos; }
};

RegistryValue Binary(std::vector<BYTE> bytes) { return {REG_BINARY, std::move(bytes)}; }

TEST_F(SettingsTest, WithoutARegistryTheBuiltInValuesHoldBeforeAndAfterLoading)
{
    EXPECT_EQ(g_dwLoggingEnabled, 6u) << "before loading";
    for (const NamedSetting& each : kAllSettings) {
        if (&each.global != &g_dwLoggingEnabled) {
            EXPECT_EQ(each.global, each.built_in) << "before loading: " << std::wstring(each.name);
        }
    }
    pc.registry.SetDword(kUserKey, L"EnableAppSuspend", 1);
    pc.registry.DeleteKey(kUserKey);
    Load();
    for (const NamedSetting& each : kAllSettings)
        EXPECT_EQ(each.global, each.built_in) << each.name;
    EXPECT_TRUE(pc.registry.HasKey(kUserKey)) << "it is created for later writes";
    EXPECT_TRUE(LogSaid("OEM default registry path does not exist.\n [L=1]"));
}

TEST_F(SettingsTest, EveryValueComesFromTheUserThenTheOemThenTheBuiltInDefault)
{
    // 10 and 11 lie within every setting's bounds.
    for (const NamedSetting& each : kAllSettings) {
        pc.registry.SetDword(kUserKey, each.name, 10);
        pc.registry.SetDword(kOemKey, each.name, 11);
    }
    pc.registry.SetDword(kUserKey, L"EnableAppSuspend", 1);
    Load();
    for (const NamedSetting& each : kAllSettings) EXPECT_EQ(each.global, 10u) << each.name;
    EXPECT_EQ(g_bEnableAppSuspend, 0u) << "off in every new process";

    for (const NamedSetting& each : kAllSettings) pc.registry.DeleteValue(kUserKey, each.name);
    Load();
    for (const NamedSetting& each : kAllSettings) EXPECT_EQ(each.global, 11u) << each.name;

    for (const NamedSetting& each : kAllSettings) pc.registry.DeleteValue(kOemKey, each.name);
    Load();
    for (const NamedSetting& each : kAllSettings)
        EXPECT_EQ(each.global, each.built_in) << each.name;
}

TEST_F(SettingsTest, AValueCountsOnlyInTheFormOfANumber)
{
    const NamedSetting start{L"DoNotDisturbStart", g_dwDoNotDisturbStart, 1320};
    pc.registry.SetDword(kOemKey, start.name, 600);
    const std::pair<RegistryValue, DWORD> cases[] = {
        {RegistryValue::Dword(0), 0},  // a real 0 hides what lies below
        {Binary({0x2C, 0x01, 0, 0}), 300},
        {Binary({0x2C, 0x01, 0, 0, 0, 0, 0, 0}), 600},
        {Binary({1}), 600},
        {{REG_QWORD, {1, 0, 0, 0, 0, 0, 0, 0}}, 600},
        {RegistryValue::String(L"0"), 600},
        {{REG_DWORD, {1, 0}}, 600},
    };
    for (const auto& [user, loaded] : cases) {
        EXPECT_EQ(LoadedAs(start, user), loaded)
            << "type " << user.type << ", " << user.data.size() << " bytes";
    }
    EXPECT_EQ(LogBytes(), "") << "passed over in silence";
}

TEST_F(SettingsTest, LoadedValuesAreBroughtWithinTheirBounds)
{
    constexpr DWORD kNoBound = 0xFFFFFFFF;
    const std::map<std::wstring_view, std::pair<DWORD, DWORD>> bounds = {
        {L"DoNotDisturbStart", {0, 1440}},      {L"DoNotDisturbEnd", {0, 1440}},
        {L"MaxCpuPowerLimit", {0, 100}},        {L"CpuIdleThreshold", {0, 100}},
        {L"SuspendBatteryThreshold", {0, 100}}, {L"AppDisplayTimeout", {5, 30}},
        {L"CpuUsageCheckInterval", {5, 60}},    {L"BatteryUsageCheckInterval", {5, 60}},
    };
    pc.registry.SetDword(kOemKey, L"LoggingEnabled", 0);
    for (const NamedSetting& each : kAllSettings) {
        const auto row = bounds.find(each.name);
        const auto [least, most] =
            row == bounds.end() ? std::pair{DWORD{0}, kNoBound} : row->second;
        for (const DWORD value : {DWORD{0}, least, most - 1, most, kNoBound}) {
            const DWORD expected = value < least ? least : value > most ? most : value;
            EXPECT_EQ(LoadedAs(each, RegistryValue::Dword(value)), expected)
                << std::wstring(each.name) << " " << value;
        }
    }
}

TEST_F(SettingsTest, TheOemPowerSchemeIsATextThatFits)
{
    constexpr const wchar_t* kName = L"OemPowerScheme";
    constexpr const wchar_t* kScheme = L"6FECC5AE-F350-48A5-B669-B472CB895CCF";  // no braces
    Load();
    EXPECT_STREQ(g_szOemPowerScheme, L"0");
    pc.registry.SetDword(kUserKey, kName, 7);
    pc.registry.SetString(kOemKey, kName, std::wstring(128, L'x'));
    Load();
    EXPECT_STREQ(g_szOemPowerScheme, L"0") << "neither is a text that fits";
    pc.registry.SetString(kOemKey, kName, kScheme);
    Load();
    EXPECT_STREQ(g_szOemPowerScheme, kScheme) << "the OEM's";
    const std::wstring longest(127, L'y');
    pc.registry.SetString(kUserKey, kName, longest);
    RunAsProcess([] {
        OwnedKey user;
        OwnedKey oem;
        RegOpenKeyW(HKEY_LOCAL_MACHINE, kUserKey + 5, user.Receive());
        RegOpenKeyW(HKEY_LOCAL_MACHINE, kOemKey + 5, oem.Receive());
        EXPECT_EQ(RegReadOemPowerScheme(user.Get(), nullptr), sizeof(g_szOemPowerScheme));
        EXPECT_EQ(g_szOemPowerScheme, std::wstring(127, L'y')) << "the user's";
    });
    Load();
    EXPECT_EQ(g_szOemPowerScheme, longest) << "goes before the OEM's";
}

TEST_F(SettingsTest, WithoutTheUserKeyNothingIsLoadedAndNothingBounded)
{
    pc.registry.SetDword(kOemKey, L"MuteAudio", 1);
    g_dwAppDisplayTimeout = 99;
    pc.faults.Set("RegCreateKeyW", {.error = 5});
    Load();
    EXPECT_EQ(g_bMuteAudio, 0u);
    EXPECT_EQ(g_dwLoggingEnabled, 6u);
    EXPECT_EQ(g_dwAppDisplayTimeout, 99u);
    EXPECT_TRUE(LogSaid("Unable to open the root registry key, GLE=5\n [L=3]"));
    EXPECT_EQ(pc.event_log.records().back().strings[0],
              L"HOLV - RegInit   Unable to open the root registry key, GLE=5\n");
}

TEST_F(SettingsTest, AWriteGoesToTheUserKeyUnboundedAndSaysWhenItFails)
{
    RunAsProcess([&] {
        EXPECT_FALSE(RegWriteDWord(L"DoNotDisturbEnd", 5)) << "a write does not create the key";
        RegInit();
        EXPECT_TRUE(RegWriteDWord(L"DoNotDisturbEnd", 1500));
        EXPECT_FALSE(RegWriteDWord(nullptr, L"DoNotDisturbEnd", 5));
        pc.faults.Set("RegSetValueExW", {.error = 5});
        EXPECT_FALSE(RegWriteDWord(L"DoNotDisturbEnd", 5));
    });
    EXPECT_EQ(pc.registry.GetDword(kUserKey, L"DoNotDisturbEnd"), 1500u);
    EXPECT_EQ(g_dwDoNotDisturbEnd, 360u) << "whoever writes sets the global himself";
    EXPECT_TRUE(LogSaid("Unable to open the root registry key, GLE=2\n [L=3]"));
    EXPECT_TRUE(LogSaid("Failed to set registry value (DoNotDisturbEnd), GLE = 5\n [L=3]"));
}

}  // namespace
