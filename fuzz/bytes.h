// An input taken apart into values.
#pragma once

#include <cstring>
#include <string_view>
#include <vector>

#include "platform/base.h"

// Takes bytes from the front; zeros after the last.
class Bytes
{
public:
    explicit Bytes(std::string_view bytes) : m_left(bytes) {}
    bool empty() const { return m_left.empty(); }
    BYTE Next()
    {
        const std::vector<BYTE> byte = Take(1);
        return byte.empty() ? BYTE{0} : byte.front();
    }
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
        const std::vector<BYTE> bytes = Take(sizeof value);
        if (!bytes.empty()) std::memcpy(&value, bytes.data(), bytes.size());
        return value;
    }

private:
    std::string_view m_left;
};
