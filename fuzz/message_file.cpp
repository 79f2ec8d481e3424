// A message file: whatever it is, its texts are read, or it is refused with its place.

#include "platform/virtual/eventlog/message_file.h"

#include "fuzz/input.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    return FeedFile(data, size, virtual_pc::ReadMessageFile);
}
