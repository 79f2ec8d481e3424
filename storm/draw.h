// What a deed or a part of a life draws, from a stream of its own.
#pragma once

#include <string>
#include <vector>

#include "platform/virtual/base/random.h"
#include "platform/virtual/base/time.h"

class Draw
{
public:
    // Two draws of one seed with different streams know nothing of each other.
    Draw(std::uint64_t seed, std::uint64_t stream) : m_random(seed, stream) {}

    bool Chance(unsigned percent) { return m_random.Below(100) < percent; }
    std::int64_t Between(std::int64_t least, std::int64_t most)
    {
        return least + static_cast<std::int64_t>(
                           m_random.Below(static_cast<std::uint64_t>(most - least + 1)));
    }
    std::uint64_t Next() { return m_random.Next(); }

    template <class T>
    const T& Of(const std::vector<T>& choices)
    {
        return choices[m_random.Below(choices.size())];
    }
    std::string Of(std::initializer_list<const char*> choices)
    {
        return choices.begin()[m_random.Below(choices.size())];
    }
    virtual_pc::Duration Of(std::initializer_list<virtual_pc::Duration> choices)
    {
        return choices.begin()[m_random.Below(choices.size())];
    }

    // A number of the drawn size: many are small, few are large.
    std::int64_t Some(std::int64_t most) { return Between(0, Between(0, most)); }

private:
    virtual_pc::Random m_random;
};
