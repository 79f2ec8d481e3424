#include "service/platform_check.h"

#include <cstring>
#include <string_view>

#include "platform/cpu.h"
#include "platform/kernel.h"

namespace {

// Set by the build.
constexpr std::string_view kVendor = HOLV_CPU_VENDOR;
static_assert(kVendor.size() == 12);

bool IsAcceptedProcessor()
{
    int registers[4] = {};
    __cpuid(registers, 0);
    const int vendor[] = {registers[1], registers[3], registers[2]};  // EBX, EDX, ECX
    static_assert(sizeof(vendor) == kVendor.size());
    return std::memcmp(vendor, kVendor.data(), sizeof(vendor)) == 0;
}

bool IsAcceptedWindows()
{
    OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof(version);
    if (!GetVersionExW(&version)) return false;
    return version.dwMajorVersion > 6 ||
           (version.dwMajorVersion == 6 && version.dwMinorVersion != 0);
}

}  // namespace

BOOL IsPlatformSupported() { return IsAcceptedProcessor() && IsAcceptedWindows(); }
