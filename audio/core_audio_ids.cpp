// Defines Core Audio's GUIDs, which the SDK's libraries lack.
#define INITGUID
#include "platform/audio.h"
