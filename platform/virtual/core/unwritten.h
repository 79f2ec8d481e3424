// What programs have written and the PC has not yet put on its disk: what a power cut may lose.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "platform/virtual/base/random.h"
#include "platform/virtual/base/time.h"

namespace virtual_pc {

class Machine;

// Writes of one store reach the disk in their order: each is there no later than a minute after it
// was made, or when the store is flushed. All calls are made with the machine held.
class Unwritten
{
public:
    static constexpr Duration kLazyWrite = std::chrono::minutes{1};

    Unwritten(Machine& machine, std::uint64_t seed) : m_machine(machine), m_random(seed, 4) {}

    // Whether the calling thread's writes reach the disk at once, with all before them: those of
    // the driver, which is no program of the PC, do.
    static bool AtOnce();

    // Notes a write to a store, a registry hive, by its name. `undo` restores what was before.
    void Note(std::wstring_view store, std::function<void()> undo);
    void Flush(std::wstring_view store);

    // The power is cut: keeps the first writes of each store, as many as the seed says, and undoes
    // the others, latest first.
    void Lose();
    // How many of a store's writes are kept.
    std::size_t Kept(std::size_t writes) { return m_random.Below(writes + 1); }

private:
    struct Write
    {
        Instant at;
        std::function<void()> undo;
    };

    Machine& m_machine;
    Random m_random;
    std::map<std::wstring, std::deque<Write>, std::less<>> m_stores;
};

}  // namespace virtual_pc
