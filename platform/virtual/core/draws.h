// What is drawn for one call of a platform function.
#pragma once

#include <cstdint>

#include "platform/virtual/base/random.h"

namespace virtual_pc {

class Function;
class Thread;

// The seed of one function's calls: the same whatever else is drawn from the PC's seed.
std::uint64_t SeedOf(std::uint64_t seed, const Function& function);

// What is drawn for the n-th call by a thread, from the function's seed. Other functions and
// threads keep theirs when one is left out.
Random DrawOf(std::uint64_t function_seed, const Thread& thread, std::uint64_t n);

}  // namespace virtual_pc
