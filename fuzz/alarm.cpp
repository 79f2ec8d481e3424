// Fails on purpose, at an input that libFuzzer has to find: what runs the targets expects it to,
// and so knows that a failure is seen.

#include "fuzz/input.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (TextOf(data, size).starts_with("ring")) RingAlarm("the alarm rings");
    return 0;
}
