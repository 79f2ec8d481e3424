#include "platform/virtual/core/draws.h"

#include <string_view>

#include "platform/virtual/core/faults.h"
#include "platform/virtual/core/thread.h"

namespace virtual_pc {

std::uint64_t SeedOf(std::uint64_t seed, const Function& function)
{
    std::uint64_t key = 0;
    for (const char letter : std::string_view(function.name())) {
        key = Random(key, static_cast<unsigned char>(letter)).Next();
    }
    return key + seed;
}

Random DrawOf(std::uint64_t function_seed, const Thread& thread, std::uint64_t n)
{
    return Random(Random(function_seed, thread.key).Next(), n);
}

}  // namespace virtual_pc
