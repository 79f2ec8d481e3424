// The effects of what the machine does, for listeners: the story, the trace, a test.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "platform/virtual/base/time.h"

namespace virtual_pc {

using Value = std::variant<std::int64_t, std::uint64_t, bool, std::wstring>;

// One thing that happened. `kind` and the names of the fields are literals; each facet documents
// its own where it records them.
struct Effect
{
    Instant at;
    CalendarTime clock;
    DWORD thread;  // the thread that caused it; 0 for the machine itself or its driver
    std::string_view kind;
    std::vector<std::pair<std::string_view, Value>> fields;

    // The field's text; empty when there is none of that name.
    std::wstring Text(std::string_view name) const;
    std::int64_t Number(std::string_view name) const;
};

class Machine;

class Journal
{
public:
    explicit Journal(Machine& machine) : m_machine(machine) {}

    using Listener = std::function<void(const Effect&)>;

    // The kinds of effect that a listener wants to receive. One that says so spares the machine
    // the making of the others.
    using Wanted = bool (*)(std::string_view kind);

    // Listeners run on the thread that causes the effect, with the machine held, and must not
    // block.
    void Listen(
        Listener listener, Wanted wanted = [](std::string_view) { return true; })
    {
        m_listeners.emplace_back(std::move(listener), wanted);
    }

    // Checked before the fields of an effect are put together, when that is costly.
    bool Listened(std::string_view kind) const
    {
        return std::ranges::any_of(m_listeners, [&](const auto& l) { return l.second(kind); });
    }

    void Record(std::string_view kind, std::vector<std::pair<std::string_view, Value>> fields = {});

private:
    Machine& m_machine;
    std::vector<std::pair<Listener, Wanted>> m_listeners;
};

}  // namespace virtual_pc
