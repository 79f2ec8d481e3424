// Numbers drawn from a seed.
#pragma once

#include <cstdint>

namespace virtual_pc {

// splitmix64: small, fast, and the same on every host. Users with one seed take a stream each, so
// that what one draws tells nothing of what another draws.
class Random
{
public:
    explicit Random(std::uint64_t seed, std::uint64_t stream = 0)
        : m_state(seed + stream * 0xD1B54A32D192ED03u)
    {
    }

    std::uint64_t Next()
    {
        m_state += 0x9E3779B97F4A7C15u;
        std::uint64_t z = m_state;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
        return z ^ (z >> 31);
    }

    // A number below `bound`, which must not be 0.
    std::uint64_t Below(std::uint64_t bound) { return Next() % bound; }

    // From 0 up to, but not including, 1.
    double Fraction() { return static_cast<double>(Next() >> 11) * 0x1p-53; }

private:
    std::uint64_t m_state;
};

}  // namespace virtual_pc
