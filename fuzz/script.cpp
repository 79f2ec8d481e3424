// A scenario's script: whatever it is, it is understood, or refused with its place.

#include "pc/script.h"

#include "fuzz/input.h"
#include "pc/commands.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    return FeedFile(data, size, [](const std::string& path) {
        for (const ScriptLine& line : ReadScript(path)) Bind(line);
    });
}
