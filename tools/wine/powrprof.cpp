// A stand-in for the power library under Wine, which lacks the functions that read and write plans:
// the virtual PC's own plans behind the real library's exports. For the Wine check only; it lies
// beside the executable there and is no part of the product.
//
// It tells what it is asked in powrprof.log beside the executable: a line for each write and each
// activation, and at the process's end a line for each value that is not as Windows ships it.
//
// Each process finds the plans as Windows ships them, unless there is a file powrprof.plans beside
// the executable: the plans are kept there, and outlive a process that is killed.

#include <cstdio>
#include <mutex>
#include <string>

#include "platform/virtual/power/power_plans.h"

using namespace virtual_pc;

namespace {

std::mutex g_lock;
PowerPlans g_plans;
const PowerPlans g_shipped;

// The path of `name` in the executable's folder, which need not be the current one.
std::wstring BesideTheExecutable(const wchar_t* name)
{
    wchar_t path[MAX_PATH];
    const std::wstring program(path, GetModuleFileNameW(nullptr, path, MAX_PATH));
    return program.substr(0, program.rfind(L'\\') + 1) + name;
}

void Tell(const std::wstring& line)
{
    std::FILE* log = _wfopen(BesideTheExecutable(L"powrprof.log").c_str(), L"ab");
    if (!log) return;
    for (const wchar_t character : line) std::fputc(static_cast<char>(character), log);
    std::fputc('\n', log);
    std::fclose(log);
}

// A value that a plan has had since; with no setting, the plan that has been active since.
struct Kept
{
    GUID scheme;
    GUID setting;
    DWORD source;
    DWORD value;
};

constexpr const wchar_t* kKeptPlans = L"powrprof.plans";

void Keep(const Kept& kept)
{
    std::FILE* file = _wfopen(BesideTheExecutable(kKeptPlans).c_str(), L"r+b");
    if (!file) return;
    std::fseek(file, 0, SEEK_END);
    std::fwrite(&kept, sizeof(kept), 1, file);
    std::fclose(file);
}

void LoadKept()
{
    std::FILE* file = _wfopen(BesideTheExecutable(kKeptPlans).c_str(), L"rb");
    if (!file) return;
    for (Kept kept{}; std::fread(&kept, sizeof(kept), 1, file) == 1;) {
        if (IsEqualGUID(kept.setting, GUID{})) {
            g_plans.Activate(kept.scheme);
        } else {
            g_plans.Write(kept.scheme, kept.setting, static_cast<PowerSource>(kept.source),
                          kept.value);
        }
    }
    std::fclose(file);
}

const wchar_t* Spell(PowerSource source) { return source == PowerSource::ac ? L" ac " : L" dc "; }

DWORD Read(PowerSource source, const GUID* scheme, const GUID* subgroup, const GUID* setting,
           LPDWORD value)
{
    const std::lock_guard lock(g_lock);
    if (!StandsUnder(subgroup, *setting)) return ERROR_FILE_NOT_FOUND;
    const std::optional<DWORD> read = g_plans.Read(*scheme, *setting, source);
    if (!read) return ERROR_FILE_NOT_FOUND;
    *value = *read;
    return ERROR_SUCCESS;
}

DWORD Write(PowerSource source, const GUID* scheme, const GUID* subgroup, const GUID* setting,
            DWORD value)
{
    const std::lock_guard lock(g_lock);
    if (!StandsUnder(subgroup, *setting)) return ERROR_FILE_NOT_FOUND;
    if (!g_plans.Write(*scheme, *setting, source, value)) return ERROR_FILE_NOT_FOUND;
    Keep({*scheme, *setting, static_cast<DWORD>(source), value});
    Tell(L"write " + g_plans.Find(*scheme)->name + L": " +
         std::wstring(PowerSettingName(*setting)) + Spell(source) + std::to_wstring(value));
    return ERROR_SUCCESS;
}

// As Wine has it. Without a battery the charge is no percentage.
SYSTEM_POWER_STATUS PowerStatus()
{
    SYSTEM_POWER_STATUS status{};
    if (!GetSystemPowerStatus(&status)) status.BatteryLifePercent = 255;
    return status;
}

void TellWhatIsChanged()
{
    for (const auto& [guid, before] : g_shipped.all()) {
        for (const auto& [setting, values] : before.values) {
            for (const PowerSource source : {PowerSource::ac, PowerSource::dc}) {
                const DWORD now = *g_plans.Read(guid, setting, source);
                if (now == values[source]) continue;
                Tell(L"changed " + before.name + L": " + std::wstring(PowerSettingName(setting)) +
                     Spell(source) + std::to_wstring(values[source]) + L" -> " +
                     std::to_wstring(now));
            }
        }
    }
    Tell(L"active at the end: " + g_plans.active().name);
}

}  // namespace

extern "C" {

// The exports that read and write the values of one power source; `AC` is its place in their names.
#define EXPORT_VALUES_OF(AC, source)                                                        \
    __declspec(dllexport) DWORD WINAPI PowerRead##AC##ValueIndex(                           \
        HKEY, const GUID* scheme, const GUID* subgroup, const GUID* setting, LPDWORD value) \
    {                                                                                       \
        return Read(source, scheme, subgroup, setting, value);                              \
    }                                                                                       \
    __declspec(dllexport) DWORD WINAPI PowerWrite##AC##ValueIndex(                          \
        HKEY, const GUID* scheme, const GUID* subgroup, const GUID* setting, DWORD value)   \
    {                                                                                       \
        return Write(source, scheme, subgroup, setting, value);                             \
    }
EXPORT_VALUES_OF(AC, PowerSource::ac)
EXPORT_VALUES_OF(DC, PowerSource::dc)

__declspec(dllexport) DWORD WINAPI PowerGetActiveScheme(HKEY, GUID** scheme)
{
    const std::lock_guard lock(g_lock);
    *scheme = static_cast<GUID*>(LocalAlloc(LMEM_FIXED, sizeof(GUID)));
    if (!*scheme) return ERROR_NOT_ENOUGH_MEMORY;
    **scheme = g_plans.active().guid;
    return ERROR_SUCCESS;
}

__declspec(dllexport) DWORD WINAPI PowerSetActiveScheme(HKEY, const GUID* scheme)
{
    const std::lock_guard lock(g_lock);
    if (!g_plans.Activate(*scheme)) return ERROR_FILE_NOT_FOUND;
    Keep({*scheme, GUID{}, 0, 0});
    Tell(L"activate " + g_plans.active().name);
    return ERROR_SUCCESS;
}

__declspec(dllexport) BOOLEAN WINAPI GetPwrCapabilities(SYSTEM_POWER_CAPABILITIES* capabilities)
{
    *capabilities = {};
    capabilities->SystemS3 = TRUE;
    capabilities->SystemBatteriesPresent = PowerStatus().BatteryLifePercent <= 100;
    return TRUE;
}

__declspec(dllexport) LONG WINAPI CallNtPowerInformation(POWER_INFORMATION_LEVEL level, PVOID,
                                                         ULONG, PVOID output, ULONG outputSize)
{
    constexpr LONG kStatusInvalidParameter = static_cast<LONG>(0xC000000Du);
    if (level == SystemPowerInformation && outputSize >= sizeof(SYSTEM_POWER_INFORMATION)) {
        // The user counts as always present: the whole idle time remains.
        const PowerSource source =
            PowerStatus().ACLineStatus == 0 ? PowerSource::dc : PowerSource::ac;
        const std::lock_guard lock(g_lock);
        auto& information = *static_cast<SYSTEM_POWER_INFORMATION*>(output);
        information = {};
        information.TimeRemaining = g_plans.InForce(GUID_STANDBY_TIMEOUT, source).value_or(0);
        return 0;
    }
    if (level != SystemPowerCapabilities || outputSize < sizeof(SYSTEM_POWER_CAPABILITIES)) {
        return kStatusInvalidParameter;
    }
    GetPwrCapabilities(static_cast<SYSTEM_POWER_CAPABILITIES*>(output));
    return 0;
}

__declspec(dllexport) BOOLEAN WINAPI
    SetSuspendState(BOOLEAN hibernate, BOOLEAN force, BOOLEAN wake_disabled)
{
    Tell(L"sleep: hibernate " + std::to_wstring(hibernate) + L", force " + std::to_wstring(force) +
         L", wake disabled " + std::to_wstring(wake_disabled));
    SetLastError(ERROR_NOT_SUPPORTED);
    return FALSE;
}

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID)
{
    if (reason == DLL_PROCESS_ATTACH) LoadKept();
    if (reason == DLL_PROCESS_DETACH) TellWhatIsChanged();
    return TRUE;
}
}
