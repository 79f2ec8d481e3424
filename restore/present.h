// Internal to restore/: the present values of the user's things, and how to set them.
#pragma once

#include <optional>

#include "platform/audio.h"
#include "restore/things.h"

// Each is empty when the value cannot be read. `*gone`, if given, tells whether that is because the
// plan does not exist any more.
std::optional<ThingValue> PresentPlanValue(const GUID& plan, const GUID& setting, bool ac,
                                           bool* gone = nullptr);
std::optional<ThingValue> PresentActivePlan();
std::optional<ThingValue> PresentMute(IAudioEndpointVolume& volume);

// False when the system refuses.
bool SetPlanValue(const GUID& plan, const GUID& setting, bool ac, DWORD value);
bool SetActivePlan(const GUID& plan);
