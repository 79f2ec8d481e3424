// A registration file: whatever it is, its changes are read, or it is refused with its place.

#include "platform/virtual/registry/reg_file.h"

#include "fuzz/input.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    return FeedFile(data, size, virtual_pc::ReadRegFile);
}
