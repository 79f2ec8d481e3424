#include "restore/present.h"

#include "platform/owned.h"

namespace {

// A read that has failed once may succeed the next time, and what is the user's depends on it.
template <class Read>
DWORD ReadTwice(Read read)
{
    const DWORD error = read();
    return error == ERROR_SUCCESS || error == ERROR_FILE_NOT_FOUND ? error : read();
}

}  // namespace

std::optional<ThingValue> PresentPlanValue(const GUID& plan, const GUID& setting, bool ac,
                                           bool* gone)
{
    const RestorableSetting* const known = FindRestorable(setting);
    if (!known) return std::nullopt;
    const auto read = ac ? PowerReadACValueIndex : PowerReadDCValueIndex;
    DWORD value = 0;
    const DWORD error =
        ReadTwice([&] { return read(nullptr, &plan, known->subgroup, known->setting, &value); });
    if (gone) *gone = error == ERROR_FILE_NOT_FOUND;
    if (error != ERROR_SUCCESS) return std::nullopt;
    return ThingValue(value);
}

std::optional<ThingValue> PresentActivePlan()
{
    Owned<GUID*, LocalFree> active;
    const DWORD error = ReadTwice([&] { return PowerGetActiveScheme(nullptr, active.Receive()); });
    if (error != ERROR_SUCCESS || !active) return std::nullopt;
    return ThingValue(*active.Get());
}

std::optional<ThingValue> PresentMute(IAudioEndpointVolume& volume)
{
    BOOL muted = FALSE;
    if (FAILED(volume.GetMute(&muted)) && FAILED(volume.GetMute(&muted))) return std::nullopt;
    return ThingValue(DWORD{muted != FALSE});
}

bool SetPlanValue(const GUID& plan, const GUID& setting, bool ac, DWORD value)
{
    const RestorableSetting* const known = FindRestorable(setting);
    if (!known) return false;
    const auto write = ac ? PowerWriteACValueIndex : PowerWriteDCValueIndex;
    return write(nullptr, &plan, known->subgroup, known->setting, value) == ERROR_SUCCESS;
}

bool SetActivePlan(const GUID& plan)
{
    return PowerSetActiveScheme(nullptr, &plan) == ERROR_SUCCESS;
}
