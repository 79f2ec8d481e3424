// The command line: what each switch writes into the registry and the service manager's database,
// what it takes away again, and what becomes of it when a step fails.

#include <filesystem>
#include <fstream>

#include "log/rights.h"
#include "platform/com.h"
#include "platform/module.h"
#include "platform/owned.h"
#include "platform/virtual/com/com.h"
#include "platform/virtual/console/outputs.h"
#include "platform/virtual/disk/disk.h"
#include "platform/virtual/processes/cpu.h"
#include "tests/service_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

constexpr const wchar_t* kServiceKey = LR"(HKLM\SYSTEM\CurrentControlSet\Services\HOLVService)";

class RegistrationTest : public ServiceFixture
{
protected:
    // Everything beneath a root of classes, a line for each value and for each key without one; the
    // type library, which has a test of its own, is left out.
    Lines Classes(const wchar_t* root = LR"(HKLM\Software\Classes)")
    {
        const Hold hold(pc);
        Lines lines;
        List(*pc.registry.FindKey(Registry::Parse(root)), "", lines);
        return lines;
    }

    static Lines Registered(const char* as) { return BlockOf("classes.txt", as); }

    // What the user was shown since the last time.
    std::string Shown()
    {
        std::string shown;
        for (; m_shown < pc.outputs.message_boxes().size(); ++m_shown) {
            shown += ToUtf8(pc.outputs.message_boxes()[m_shown]) + ". ";
        }
        return shown;
    }

private:
    static void List(const RegistryNode& key, const std::string& path, Lines& lines)
    {
        // The default value comes first.
        for (const auto& [name, value] : key.values) {
            EXPECT_EQ(value.type, REG_SZ) << path;
            lines.push_back(path + " " + ToUtf8(name) + "=" + ToUtf8(value.Text()));
        }
        if (key.values.empty() && !path.empty()) lines.push_back(path);
        for (const auto& [name, below] : key.keys) {
            const bool library = path.empty() && (name == L"TypeLib" || name == L"Interface");
            if (library) continue;
            List(*below, path + (path.empty() ? "" : "\\") + ToUtf8(name), lines);
        }
    }

    std::size_t m_shown = 0;
};

TEST_F(RegistrationTest, ForTheMachineAllIsWrittenAndTakenAway)
{
    EXPECT_EQ(service.Run(L"-Service"), 0);
    EXPECT_LINES(Classes(), Registered("a service"));
    EXPECT_EQ(pc.registry.GetDword(kServiceKey, L"Type"), 0x10u);
    EXPECT_EQ(pc.registry.GetDword(kServiceKey, L"Start"), 2u);
    EXPECT_EQ(pc.registry.GetDword(kServiceKey, L"ErrorControl"), 1u);
    const std::optional<ServiceConfig> config = pc.services.Read(kService);
    ASSERT_TRUE(config);
    EXPECT_EQ(config->path, LR"("C:\Program Files\Orbeq\Holv\HOLVService.exe")");
    EXPECT_EQ(config->display_name, L"Orbeq(R) Holv Technology");
    EXPECT_EQ(config->description, L"Orbeq(R) Holv Technology");
    EXPECT_EQ(config->dependencies, std::vector<std::wstring>{L"RPCSS"});
    EXPECT_EQ(config->account, L"LocalSystem");

    EXPECT_EQ(pc.registry.GetDword(LR"(HKLM\SYSTEM\CurrentControlSet\Services\EventLog\)"
                                   LR"(Application\Orbeq( R ) HOLV)",
                                   L"CategoryCount"),
              1u);

    // Registering again replaces the class's old entries, and a plain server no longer has the
    // service's.
    pc.registry.SetString(LR"(HKCR\CLSID\{3E9F1B20-6C4A-4D8E-B7F2-95A0C1D3E864}\Old)", L"", L"x");
    EXPECT_EQ(service.Run(L"/RegServer"), 0);
    EXPECT_LINES(Classes(), Registered("a server"));
    EXPECT_EQ(service.State(), "absent");

    EXPECT_EQ(service.Run(L"-Service"), 0);
    EXPECT_EQ(service.Run(L"-UnregServer"), 0);
    EXPECT_LINES(Classes(), Registered("nothing"));
    EXPECT_EQ(service.State(), "absent");
    EXPECT_FALSE(pc.registry.HasKey(kServiceKey));
    EXPECT_EQ(static_cast<DWORD>(service.Run(L"-UnregServer")), 0x8002801Cu)
        << "there is no type library any more";
    EXPECT_EQ(Shown(), "");
}

TEST_F(RegistrationTest, AProgramThatUsersCanWriteIsWarnedOfAndInstalled)
{
    const std::wstring folder = LR"(C:\Program Files\Orbeq\Holv)";
    const std::string warning = "Users can write to ";
    std::filesystem::create_directories(pc.disk.HostPath(folder));
    EXPECT_EQ(service.Run(L"-Service"), 0);
    EXPECT_FALSE(service.heard.Has(warning + ToUtf8(folder)));
    const FileRights::Rights open{L"Administrators", {{L"Administrators", L"SYSTEM", L"Users"}}};
    const FileRights::Rights alices{L"alice", {{L"alice", L"SYSTEM"}}};
    const FileRights::Rights to_be_added_to{L"Administrators", std::nullopt};
    for (const std::wstring& place : {folder, FolderOf(folder)}) {
        for (const FileRights::Rights& rights : {open, alices, to_be_added_to}) {
            const bool warned = place == folder || rights.writers;
            SCOPED_TRACE(ToUtf8(place + L" of " + rights.owner));
            pc.disk.SetRights(place, rights);
            service.heard.Forget();
            EXPECT_EQ(service.Run(L"-Service"), 0);
            EXPECT_EQ(service.heard.Has(warning + ToUtf8(place)), warned);
            EXPECT_EQ(Shown(), "") << "a silent installation waits";
            service.Restart();
            EXPECT_EQ(service.heard.Has(warning + ToUtf8(place)), warned);
            service.Stop();
        }
        pc.disk.SetRights(place, {L"Administrators", {{L"Administrators"}}});
    }
}

TEST_F(RegistrationTest, ForAUserAllIsHisAndTheMachinesIsUntouched)
{
    constexpr const wchar_t* kUsers = LR"(HKCU\Software\Classes)";
    EXPECT_EQ(service.Run(L"-RegServerPerUser"), 0);
    EXPECT_LINES(Classes(kUsers), Registered("a server"));
    EXPECT_LINES(Classes(), Registered("nothing"));
    EXPECT_EQ(service.Run(L"-UnregServerPerUser"), 0);
    EXPECT_LINES(Classes(kUsers), Registered("nothing"));
    EXPECT_LINES(Classes(), Registered("nothing"));
}

TEST_F(RegistrationTest, TheFirstKnownSwitchIsDoneHoweverItIsWritten)
{
    const struct
    {
        const wchar_t* line;
        const char* does;  // what is registered then
    } cases[] = {
        {L"-RegServer", "server"},
        {L"/RegServer", "server"},
        {L"/REGSERVER", "server"},
        {L"-regserver", "server"},
        {L"--regServer", "server"},
        {L"x -Unknown\t/regserver\tmore -Service", "server"},
        {L"-regserver\r\n", "server"},
        {L"-RegServerPerUser", "user"},
        {L"/regserverperuser", "user"},
        {L"/SERVICE", "service"},
        {L"-service -UnregServer", "service"},
        {L"-Services -RegServers -RegServer2 -Service", "service"},
        {L"-Unregserver", "nothing"},
        {L"/unregserverperuser", "nothing"},
    };
    const auto registered = [&] {
        if (pc.registry.HasKey(LR"(HKCU\Software\Classes\AppID\HOLVService.EXE)")) return "user";
        if (!pc.registry.HasKey(LR"(HKLM\Software\Classes\AppID\HOLVService.EXE)")) {
            return "nothing";
        }
        return pc.services.Find(kService) ? "service" : "server";
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(ToUtf8(c.line));
        if (std::string(c.does) == "nothing") {
            service.Run(std::wstring(c.line).find(L"user") != std::wstring::npos
                            ? L"-RegServerPerUser"
                            : L"-Service");
        }
        EXPECT_EQ(service.Run(c.line), 0);
        EXPECT_EQ(std::string(registered()), c.does);
        service.Run(L"-UnregServer");
        // If the user's hive had a class of this name, new values would go there.
        pc.registry.DeleteKey(LR"(HKCU\Software\Classes)");
        pc.registry.DeleteKey(LR"(HKLM\Software\Classes\AppID)");
    }
    // A path with a hyphen, and one with a switch's name after the hyphen.
    for (const wchar_t* path :
         {LR"(C:\a-b\HOLVService.exe)", LR"(C:\x -Service\HOLVService.exe)"}) {
        Image image = service.image;
        image.path = path;
        pc.com.type_libraries.Add(path, HOLV_SOURCE_DIR "/api/HOLVAgentLib.idl");
        Process& process = pc.Start(image, L"/RegServer");
        pc.RunUntilEnd(process);
        EXPECT_EQ(process.exit_code(), 0);
        EXPECT_EQ(std::string(registered()), "server") << ToUtf8(path);
        EXPECT_EQ(pc.registry.GetString(
                      LR"(HKCR\CLSID\{3E9F1B20-6C4A-4D8E-B7F2-95A0C1D3E864}\LocalServer32)", L""),
                  path);
    }
}

TEST_F(RegistrationTest, WithDebugTheStateMachineComesAndGoesAndTheProcessGoesOn)
{
    service.Run(L"-Service");
    service.heard.Forget();
    EXPECT_EQ(service.Run(L"/x /DEBUG -y"), ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
    EXPECT_TRUE(service.heard.Has("EnableHOLV (1), MuteAudio(0), EnableDND(1)"));
    EXPECT_TRUE(service.heard.Has("Unknown event, WaitForMultipleObjects Return Code=-1, GLE=6"));
    EXPECT_TRUE(service.heard.Has("HOLV State Machine Exited"));
    service.Run(L"-RegServer");
    const Process& server = *pc.StartInstalled(service.image.path, L"HOLVService.exe -Debug");
    pc.RunFor(1s);
    EXPECT_TRUE(server.running());
    pc.ShutDown();
    left_open_is_expected = true;
}

TEST_F(RegistrationTest, AServiceThatSomebodyHasOpenIsReplacedOnceHeHasClosedIt)
{
    service.Start();
    const Lines registered = Classes();
    pc.Install(L"C:\\console.exe", [] {
        const OwnedServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
        const OwnedServiceHandle open(OpenServiceW(manager.Get(), kService, SERVICE_QUERY_CONFIG));
        EXPECT_TRUE(open);
        Sleep(10'000);
        return 0;
    });
    const Process& console = *pc.StartInstalled(L"C:\\console.exe", L"console.exe");
    pc.RunFor(1ms);
    EXPECT_EQ(static_cast<DWORD>(service.Run(L"-Service")), 0x80004005u);
    EXPECT_EQ(Shown(), "HOLVService: Could not start service. ");
    EXPECT_TRUE(service.heard.Has("Failed to create service, GLE=1072"));
    service.AwaitEnd();
    EXPECT_EQ(service.State(), "stopped");
    pc.RunUntilEnd(console);
    EXPECT_EQ(service.State(), "absent");
    EXPECT_EQ(service.Run(L"-Service"), 0);
    EXPECT_EQ(Classes(), registered);
    EXPECT_EQ(service.Run(L"-Service"), 0) << "one that does not run, at once";
    EXPECT_EQ(service.State(), "stopped");
}

TEST_F(RegistrationTest, AServiceThatIsStoppingIsRemovedWithoutAWord)
{
    pc.slowness.Set("WaitForMultipleObjects", {.typical = 2s});
    service.Start();
    EXPECT_EQ(pc.services.Control(kService, SERVICE_CONTROL_STOP), DWORD{ERROR_SUCCESS});
    pc.RunFor(100ms);
    EXPECT_EQ(service.State(), "stopping");
    EXPECT_EQ(service.Run(L"-UnregServer"), 0);
    EXPECT_EQ(Shown(), "");
    service.AwaitEnd();
    EXPECT_EQ(service.State(), "absent");
}

// What a message box shows, by its number in the string table.
const std::map<UINT, std::string> kShown{{55306, "Could not open Service Manager"},
                                         {55307, "Could not start service"},
                                         {55308, "Could not open service"},
                                         {55309, "Could not delete service"},
                                         {55310, "Could not stop service"}};
const struct StepThatFails
{
    const wchar_t* line;
    const char* fails;
    std::uint64_t nth;
    DWORD error;
    DWORD exit_code;
    UINT shown;
    std::string heard;
} kStepsThatFail[] = {
    {L"-Service", "OpenSCManagerW", 1, 5, 0, 0, ""},
    {L"-Service", "OpenSCManagerW", 2, 5, 0x80004005, 55306, ""},
    {L"-Service", "CreateServiceW", 1, 8, 0x80004005, 55307, "Failed to create service, GLE=8\n"},
    {L"-Service", "CreateServiceW", 1, ERROR_SERVICE_EXISTS, 0, 0, ""},
    {L"-Service", "ChangeServiceConfig2W", 1, 5, 0, 0,
     "Failed to update service description - Access is denied. (0x5)\n"},
    {L"-Service", "ChangeServiceConfig2W", 1, 4321, 0, 0,
     "Failed to update service description - \n"},
    {L"-Service", "RegSetValueExW", 5, 5, 0x80070005, 0, ""},
    {L"-Service", "RegCreateKeyW", 3, 5, 0x80070005, 0, ""},
    {L"-Service", "GetModuleFileNameW", 4, 5, 0x80004005, 0, ""},
    {L"-Service", "GetModuleFileNameW", 5, 5, 0x80004005, 0, ""},
    {L"-Service", "GetModuleFileNameW", 6, 5, 0x80004005, 0, ""},
    {L"-Service", "GetModuleFileNameW", 7, 5, 0x80004005, 0, ""},
    {L"-UnregServer", "RegDeleteTreeW", 1, 5, 0x80070005, 0, ""},
    {L"-UnregServer", "OpenSCManagerW", 2, 5, 0x80004005, 55306, ""},
    {L"-UnregServer", "OpenServiceW", 2, 5, 0x80004005, 55308, ""},
    {L"-UnregServer", "ControlService", 1, 1053, 0, 55310, ""},
    {L"-UnregServer", "ControlService", 1, ERROR_SERVICE_CANNOT_ACCEPT_CTRL, 0, 55310, ""},
    {L"-UnregServer", "DeleteService", 1, 5, 0x80004005, 55309, ""},
};

TEST_F(RegistrationTest, AStepThatFailsIsShownAndEndsWithItsError)
{
    // A program whose string table has translations.
    Image translated = service.image;
    const std::filesystem::path root = pc.disk.HostPath(L"C:\\");
    for (const char* folder : {"resources", "api"}) {
        std::filesystem::copy(std::filesystem::path(HOLV_SOURCE_DIR) / folder, root / folder);
    }
    translated.resources = root / "resources";
    {
        std::ofstream table(translated.resources + "/HOLVService.rc.in");
        table << "STRINGTABLE\n";
        for (const auto& [id, text] : kShown) table << id << " \"translated " << text << "\"\n";
    }
    for (const bool own : {true, false}) {
        pc.Install(own ? service.image : translated);
        for (const auto& c : kStepsThatFail) {
            SCOPED_TRACE(ToUtf8(c.line) + " " + c.fails + " " + std::to_string(c.error));
            const bool installs = std::wstring(c.line) == L"-Service";
            service.Run(installs ? L"-UnregServer" : L"-Service");
            service.heard.Forget();
            pc.faults.Set(c.fails, {.error = c.error, .first = c.nth});
            EXPECT_EQ(static_cast<DWORD>(service.Run(c.line)), c.exit_code);
            pc.faults.ClearAll();
            const std::string before = own ? "HOLVService: " : "HOLVService: translated ";
            EXPECT_EQ(Shown(), c.shown ? before + kShown.at(c.shown) + ". " : "");
            EXPECT_TRUE(c.heard.empty() || service.heard.Has(c.heard));
        }
    }
}

TEST_F(RegistrationTest, OnAnotherMachineNothingIsDone)
{
    const std::tuple<const char*, DWORD, int> cases[] = {
        {"AnotherMaker", 0x0106, 1},  {"genuineorbeq", 0x0106, 1},  {HOLV_CPU_VENDOR, 0x0006, 1},
        {HOLV_CPU_VENDOR, 0x0205, 1}, {HOLV_CPU_VENDOR, 0x0106, 0}, {HOLV_CPU_VENDOR, 0x000A, 0},
    };
    for (const auto& [vendor, version, exit_code] : cases) {
        pc.cpu.vendor = vendor;
        pc.os_version = version;
        for (const wchar_t* line : {L"-RegServer", L"-Service", L"-UnregServer"}) {
            service.heard.Forget();
            EXPECT_EQ(service.Run(line), exit_code) << vendor << " " << version;
            EXPECT_EQ(service.heard.Has("Platform not Supported"), exit_code == 1);
        }
        EXPECT_LINES(Classes(), Registered("nothing"));
    }
    pc.faults.Set("InitializeCriticalSectionAndSpinCount", {});
    EXPECT_EQ(service.Run(L"-RegServer"), -1) << "the module could not be made";
    EXPECT_LINES(Classes(), Registered("nothing"));
}

}  // namespace
