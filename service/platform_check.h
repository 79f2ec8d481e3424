// Whether this is a machine that the service is made for.
#pragma once

#include "platform/base.h"

// TRUE on a processor of the accepted vendor with Windows 7 or later.
BOOL IsPlatformSupported();
