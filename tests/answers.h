// Calls with what they must answer, for tests of the small print of the system's functions.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <type_traits>

#include "tests/virtual_pc_test.h"

inline constexpr DWORD kBefore = 0xDEAD;  // the last error before each call

// A call, what it returns, and the last error that it leaves.
struct Answer
{
    const char* call;
    std::function<std::intptr_t()> made;
    std::intptr_t result;
    DWORD error = kBefore;
};

template <class T>
std::intptr_t Number(T value)
{
    if constexpr (std::is_pointer_v<T>) {
        return reinterpret_cast<std::intptr_t>(value);
    } else {
        return static_cast<std::intptr_t>(value);
    }
}

#define ANSWER(call, ...)                                \
    {                                                    \
#call, [&] { return Number(call); }, __VA_ARGS__ \
    }

class AnswersTest : public VirtualPcTest
{
protected:
    static void Expect(std::initializer_list<Answer> answers)
    {
        for (const Answer& answer : answers) {
            SetLastError(kBefore);
            EXPECT_EQ(answer.made(), answer.result) << answer.call;
            EXPECT_EQ(GetLastError(), answer.error) << answer.call;
        }
    }
};
