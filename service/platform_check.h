// Whether the service supports this PC.
#pragma once

#include "platform/base.h"

// TRUE on a processor of the accepted vendor with Windows 7 or later.
BOOL IsPlatformSupported();
