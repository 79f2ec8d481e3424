// A scenario's script: whatever it is, it is understood, or refused with its place.

#include "pc/script.h"

#include "fuzz/input.h"
#include "pc/commands.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const InputFile file(TextOf(data, size));
    try {
        for (const ScriptLine& line : ReadScript(file.path())) Bind(line);
    } catch (const ScriptError& error) {
        ExpectPlace(error, file.path());
    }
    return 0;
}
