// What the machine's power hardware can do. Any thread.
#pragma once

#include "platform/base.h"

// Whether the PC has a battery; an uninterruptible power supply does not count. FALSE when the
// query fails.
BOOL IsBatteryPresent();

// Whether the PC supports S3 sleep. FALSE when the query fails.
BOOL IsS3Available();
