// Registry values of any type and size at the settings' loading, on one PC for all inputs: each is
// taken, bounded or passed over, and no call is misused. An input is a list of values: which
// setting, under which key, its type, its length, its bytes.

#include "settings/settings_store.h"

#include <array>
#include <vector>

#include "fuzz/bytes.h"
#include "fuzz/input.h"
#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/registry/registry.h"
#include "tests/fresh_service.h"

using namespace virtual_pc;

namespace {

constexpr std::array kKeys = {LR"(HKLM\Software\Orbeq\Holv\User)",
                              LR"(HKLM\Software\Orbeq\Holv\OEM)",
                              LR"(HKLM\Software\Orbeq\Holv\Restore)"};
constexpr std::array kNames = {
    L"LoggingLevel",      L"LoggingEnabled",        L"EnableNeverSleep",
    L"MuteAudio",         L"EnableDoNotDisturb",    L"DoNotDisturbStart",
    L"DoNotDisturbEnd",   L"MaxCpuPowerLimit",      L"CpuIdleThreshold",
    L"UseOemPowerScheme", L"EnableHOLVOnDc",        L"SuspendBatteryThreshold",
    L"AppDisplayTimeout", L"CpuUsageCheckInterval", L"BatteryUsageCheckInterval",
    L"OemPowerScheme",    L"LogFileSizeMB",         L"DndToS3",
};

void PutValues(Machine& pc, Bytes bytes)
{
    for (const wchar_t* key : kKeys) pc.registry.DeleteKey(key);
    constexpr unsigned kTypes = 12;  // one more than Windows knows
    while (!bytes.empty()) {
        const wchar_t* key = kKeys[bytes.Next() % kKeys.size()];
        const wchar_t* name = kNames[bytes.Next() % kNames.size()];
        const DWORD type = bytes.Next() % kTypes;
        const std::size_t length = bytes.Next();
        pc.registry.Set(key, name, {type, bytes.Take(length)});
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Machine pc;
    FreshService(true);
    PutValues(pc, Bytes(TextOf(data, size)));
    Process& process = pc.Start([] {
        RegInit();
        return 0;
    });
    pc.RunUntilEnd(process);
    for (const std::string& misuse : pc.misuses()) RingAlarm(misuse);
    return 0;
}
