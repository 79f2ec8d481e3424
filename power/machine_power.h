// What the machine's power hardware can do. Any thread.
#pragma once

#include "platform/base.h"

// Whether the machine runs on a battery of its own; an uninterruptible power supply is none. FALSE
// when the machine does not say.
BOOL IsBatteryPresent();

// Whether the machine supports S3 sleep. FALSE when it does not say.
BOOL IsS3Available();
