// An interface description: whatever it is, it is understood, or refused with its line.

#include "fuzz/input.h"
#include "platform/virtual/typelib/type_library.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    try {
        virtual_pc::ReadTypeLibrary(TextOf(data, size));
    } catch (const std::runtime_error& error) {
        ExpectPlace(error, "line ");
    }
    return 0;
}
