#include "restore/present.h"

#include "platform/owned.h"

std::optional<ThingValue> PresentPlanValue(const GUID& plan, const GUID& setting, bool ac,
                                           bool* gone)
{
    const RestorableSetting* const known = FindRestorable(setting);
    if (!known) return std::nullopt;
    const auto read = ac ? PowerReadACValueIndex : PowerReadDCValueIndex;
    DWORD value = 0;
    const DWORD error = read(nullptr, &plan, known->subgroup, known->setting, &value);
    if (gone) *gone = error == ERROR_FILE_NOT_FOUND;
    if (error != ERROR_SUCCESS) return std::nullopt;
    return ThingValue(value);
}

std::optional<ThingValue> PresentActivePlan()
{
    Owned<GUID*, LocalFree> active;
    if (PowerGetActiveScheme(nullptr, active.Receive()) != ERROR_SUCCESS || !active) {
        return std::nullopt;
    }
    return ThingValue(*active.Get());
}

std::optional<ThingValue> PresentMute(IAudioEndpointVolume& volume)
{
    BOOL muted = FALSE;
    if (FAILED(volume.GetMute(&muted))) return std::nullopt;
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
