// How long platform functions take, when they take time.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/virtual/base/time.h"

namespace virtual_pc {

class Function;
class Thread;

// Each span is drawn from the seed, the function, the thread and the count of the thread's calls of
// the function, so that the other functions and threads keep theirs when one is left out. All calls
// are made with the machine held.
class Slowness
{
public:
    explicit Slowness(std::uint64_t seed) : m_seed(seed) {}

    struct Pace
    {
        // A call takes between half and one and a half of this.
        Duration typical;
        // The share of the calls that take it; the others take no time.
        double rate = 1;
    };

    // Sets how long a function takes. Returns the text of an error when there is no such function
    // or it takes no time: functions that release something.
    std::optional<std::string> Set(std::string_view function, const Pace& pace);
    // Lets every function that can fail take time, each by a distribution of its own: its typical
    // span is between a microsecond and a millisecond; one call in five hundred takes a thousand
    // times as long, and one in twenty thousand hangs for up to a minute.
    void SetAll();
    void Clear(std::string_view function);
    void ClearAll();

    bool any() const { return m_any; }
    // For Call: how long the thread's next call of the function takes.
    Duration Draw(const Function& function, Thread& thread) const;

private:
    std::uint64_t m_seed;
    bool m_any = false;  // whether any function takes time
    bool m_all = false;
    std::map<std::string_view, Pace> m_paces;  // by the functions' names
};

}  // namespace virtual_pc
