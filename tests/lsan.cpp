// What the leak sanitizer must not wonder about.

// The callback of a registration that cannot be removed stays with Core Audio, which may still call
// it. It would go with its process; here all share one heap. An entry that leaked otherwise would
// leave its endpoint volume open, which every test looks for.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:RegisteredAudioDevice::Make\n";
}
