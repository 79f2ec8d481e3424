// What the machine's power hardware can do, and its battery. Any thread.
#pragma once

#include <optional>

#include "platform/power.h"

// Whether the PC has a battery; an uninterruptible power supply does not count. FALSE when the
// query fails.
BOOL IsBatteryPresent();

// GetSystemPowerStatus, of which the battery's charge is kept for KnownCharge.
BOOL ReadPowerStatus(SYSTEM_POWER_STATUS* status);

// The battery's charge in percent, when the service has read it last; nothing without a battery. On
// battery the service reads it every few seconds while the feature is on, and at each change of the
// requests otherwise.
std::optional<int> KnownCharge();

// Whether the PC supports S3 sleep. FALSE when the query fails.
BOOL IsS3Available();
