// What the package offers an administrator is what the service does: the file of defaults, and the
// bounds of the policies.

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "log/log_file.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/registry/registry.h"
#include "settings/settings_store.h"
#include "tests/all_settings.h"
#include "tests/virtual_pc_test.h"

using namespace virtual_pc;

namespace {

std::string PackageFile(const std::string& name)
{
    std::ifstream file(std::string(HOLV_SOURCE_DIR) + "/package/" + name, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// The tags of this name, as they stand in the text.
Lines Tags(const std::string& text, const std::string& name)
{
    Lines tags;
    for (std::size_t at = 0; (at = text.find("<" + name + " ", at)) != text.npos;) {
        const std::size_t end = text.find('>', at);
        tags.push_back(text.substr(at, end - at));
        at = end;
    }
    return tags;
}

std::string Attribute(const std::string& tag, const std::string& name)
{
    const std::string begin = " " + name + "=\"";
    const std::size_t at = tag.find(begin);
    if (at == tag.npos) return "";
    return tag.substr(at + begin.size(), tag.find('"', at + begin.size()) - at - begin.size());
}

// Every setting as it stands now, by its name in the registry.
std::map<std::string, DWORD> Loaded()
{
    std::map<std::string, DWORD> loaded;
    for (const NamedSetting& each : kAllSettings) loaded[ToUtf8(each.name)] = each.global;
    return loaded;
}

// Settings that nothing in the service reads.
constexpr const char* kNotOffered[] = {"EnableSoftwareUpdate", "LyncInstalled",
                                       "LastUpdateVersion"};

// Settings that are read when they are needed, not at the service's start.
const std::set<std::string> kReadAlone = {"LogFileSizeMB", "DisableLockScreen"};

class PackageTest : public VirtualPcTest
{
protected:
    // Without an OEM key, loading would write a log line.
    PackageTest() { pc.registry.SetDword(kOemKey, L"DisableLockScreen", 0); }

    std::map<std::string, DWORD> Load()
    {
        RunAsProcess([] { RegInit(); });
        return Loaded();
    }
};

TEST_F(PackageTest, TheFileOfDefaultsHidesNoMakersValueUntilALineIsUncommented)
{
    std::map<std::string, DWORD> built_in = Load();
    for (const auto& [name, value] : built_in) {
        pc.registry.SetDword(kOemKey, std::wstring(name.begin(), name.end()), 11);
    }
    pc.registry.SetDword(kOemKey, L"DisableLockScreen", 1);
    const std::map<std::string, DWORD> makers = Load();
    pc.registry.Import(std::string(HOLV_SOURCE_DIR) + "/package/defaults.reg");
    EXPECT_EQ(Load(), makers) << "imported as it is, it sets nothing";
    EXPECT_EQ(pc.registry.GetDword(kOemKey, L"DisableLockScreen"), 1u);

    const std::string uncommented = testing::TempDir() + "defaults_uncommented.reg";
    std::ofstream(uncommented, std::ios::binary)
        << std::regex_replace(PackageFile("defaults.reg"), std::regex("\n;([\"[])"), "\n$1");
    pc.registry.Import(uncommented);
    std::filesystem::remove(uncommented);
    for (const char* not_offered : kNotOffered) built_in[not_offered] = makers.at(not_offered);
    EXPECT_EQ(Load(), built_in) << "a value that differs or is missing shows the maker's 11";
    EXPECT_EQ(pc.registry.GetDword(kOemKey, L"DisableLockScreen"), 0u);
    EXPECT_EQ(pc.registry.GetDword(kUserKey, L"LogFileSizeMB"), 5u);
}

// The log reads its own size, which no table of the code has.
TEST_F(PackageTest, TheLogsSizeIsAsTheFileOfDefaultsAndThePolicySay)
{
    const auto size_of_log = [&] {
        std::filesystem::remove(pc.disk.HostPath(kLogPath));
        RunAsProcess([] { CLOGFile().Open(); });
        std::smatch size;
        const std::string log = LogBytes();
        EXPECT_TRUE(std::regex_search(log, size, std::regex("Log File Size: (\\d+)MB")));
        return std::stoul(size[1]);
    };
    std::smatch built_in;
    const std::string defaults = PackageFile("defaults.reg");
    ASSERT_TRUE(
        std::regex_search(defaults, built_in, std::regex("\"LogFileSizeMB\"=dword:([0-9a-f]{8})")));
    EXPECT_EQ(size_of_log(), std::stoul(built_in[1], nullptr, 16))
        << "LogFileSizeMB in package/defaults.reg is not what log/log_file.cpp has built in";
    for (const std::string& number : Tags(PackageFile("policies/Holv.admx"), "decimal")) {
        if (Attribute(number, "valueName") != "LogFileSizeMB") continue;
        const DWORD most = static_cast<DWORD>(std::stoul(Attribute(number, "maxValue")));
        for (const DWORD value : {most, most + 1}) {
            pc.registry.SetDword(kUserKey, L"LogFileSizeMB", value);
            EXPECT_EQ(size_of_log(), most)
                << "the policy LogFileSizeMB ends elsewhere than log/log_file.cpp";
        }
    }
}

TEST_F(PackageTest, ThePoliciesLetNothingThroughThatTheServiceWouldNotTakeAsItIs)
{
    const std::string policies = PackageFile("policies/Holv.admx");
    int numbers = 0;
    for (const std::string& number : Tags(policies, "decimal")) {
        const std::string name = Attribute(number, "valueName");
        // No name: what a policy writes when it is switched on or off.
        if (name.empty() || kReadAlone.contains(name)) continue;
        ++numbers;
        EXPECT_EQ(Attribute(number, "required"), "true") << name;
        for (const char* bound_name : {"minValue", "maxValue"}) {
            const DWORD bound = static_cast<DWORD>(std::stoul(Attribute(number, bound_name)));
            pc.registry.SetDword(kUserKey, std::wstring(name.begin(), name.end()), bound);
            EXPECT_EQ(Load().at(name), bound) << name;
        }
    }
    EXPECT_GE(numbers, 10) << "no numbers found in the policies";
}

TEST_F(PackageTest, EveryPolicyIsASettingAndHasItsTexts)
{
    const std::map<std::string, DWORD> settings = Load();
    const std::string policies = PackageFile("policies/Holv.admx");
    const std::string texts = PackageFile("policies/en-US/Holv.adml");
    const Lines found = Tags(policies, "policy");
    for (const std::string& policy : found) {
        const std::string name = Attribute(policy, "name");
        EXPECT_TRUE(settings.contains(name) || kReadAlone.contains(name) ||
                    name == "OemPowerScheme")
            << name;
        for (const std::string& id : {name, name + "_Help"}) {
            EXPECT_NE(texts.find("<string id=\"" + id + "\">"), std::string::npos) << id;
        }
        const bool has_elements =
            policies.find("$(presentation." + name + ")") != std::string::npos;
        EXPECT_EQ(texts.find("<presentation id=\"" + name + "\">") != std::string::npos,
                  has_elements)
            << name;
    }
    EXPECT_GE(found.size(), 15u) << "no policies found";
}

}  // namespace
