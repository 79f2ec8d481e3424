// An input taken apart into values.
#pragma once

#include <string_view>
#include <vector>

#include "platform/base.h"

// Takes bytes from the front; zeros after the last.
class Bytes
{
public:
    explicit Bytes(std::string_view bytes) : m_left(bytes) {}
    bool empty() const { return m_left.empty(); }
    BYTE Next() { return Value<BYTE>(); }
    std::vector<BYTE> Take(std::size_t count)
    {
        const std::string_view taken = m_left.substr(0, count);
        m_left.remove_prefix(taken.size());
        return {taken.begin(), taken.end()};
    }
    template <class T>
    T Value()
    {
        T value{};
        const std::string_view taken = m_left.substr(0, sizeof value);
        taken.copy(reinterpret_cast<char*>(&value), taken.size());
        m_left.remove_prefix(taken.size());
        return value;
    }

private:
    std::string_view m_left;
};
