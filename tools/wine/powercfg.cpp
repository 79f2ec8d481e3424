// A stand-in for the program that lists the power requests, for the Wine check: lists those of a
// driver and a program, which always hold the system, and those of the service, as
// power_requests.cpp has told them. Tells in a file beside itself what it is asked.

#include <windows.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <string>

namespace {

constexpr const char* kToldRequests = R"(C:\Program Files\Orbeq\Holv\power_requests.log)";
constexpr const char* kOthers = R"([DRIVER] Wine Audio Device
[PROCESS] \Device\HarddiskVolume1\Program Files\Film.exe
)";
constexpr const char* kService =
    R"([PROCESS] \Device\HarddiskVolume1\Program Files\Orbeq\Holv\HOLVService.exe
Orbeq(R) Holv Technology
)";

// How often the service that was started last holds the system, away mode and the display.
std::map<std::string, int> HeldByTheService()
{
    std::map<std::string, int> held;
    std::ifstream told(kToldRequests);
    for (std::string what, type; told >> what;) {
        std::getline(told >> std::ws, type);
        if (!type.empty() && type.back() == '\r') type.pop_back();
        if (what == "create:") held.clear();
        if (what == "set") ++held[type];
        if (what == "clear") --held[type];
    }
    return held;
}

void Print(const char* section, const std::string& holders)
{
    std::printf("%s:\n%s\n", section, holders.empty() ? "None.\n" : holders.c_str());
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    wchar_t path[MAX_PATH];
    const std::wstring program(path, GetModuleFileNameW(nullptr, path, MAX_PATH));
    std::FILE* told = _wfopen((program + L".told").c_str(), L"ab");
    if (!told) return 1;
    std::fprintf(told, "%ls\n", argc == 2 ? argv[1] : L"not one argument");
    std::fclose(told);
    std::map<std::string, int> held = HeldByTheService();
    const auto service = [&](const char* type) { return held[type] > 0 ? kService : ""; };
    Print("DISPLAY", service("display"));
    Print("SYSTEM", std::string(kOthers) + service("system"));
    Print("AWAYMODE", service("away"));
    return 0;
}
