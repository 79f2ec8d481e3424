// Gives the identifiers of Core Audio their one definition: the SDK's libraries lack them.
#define INITGUID
#include "platform/audio.h"
