// Leaks that the leak sanitizer does not report.

#include "platform/virtual/core/leaving.h"

// The callback of a registration that could not be removed is kept, since the sound system may
// still call it. On Windows it goes with its process; here all processes share one heap. An entry
// that leaked for another reason would leave its endpoint volume open, which every test checks.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:RegisteredAudioDevice::Make\n";
}

// A thread that is killed amid its frames never frees their memory, which on Windows goes with the
// process. So no leaks are reported once that has happened.
extern "C" int __lsan_is_turned_off() { return virtual_pc::FramesWereAbandoned(); }
