// A registration file: whatever it is, its changes are read, or it is refused with its place. What
// was read and written once is read as the same.

#include "platform/virtual/registry/reg_file.h"

#include "fuzz/input.h"
#include "platform/virtual/core/machine.h"

using namespace virtual_pc;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const InputFile file(TextOf(data, size));
    try {
        ReadRegFile(file.path());
    } catch (const std::runtime_error& error) {
        ExpectPlace(error, file.path());
    }
    return 0;
}
