// Processes of the host, one for each life: a PC that crashes or hangs takes no other with it.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "storm/play.h"

// What a process of the host has come to.
struct Ended
{
    std::string said;  // by its work
    // Why it did not end by itself; empty when it did.
    std::string failure;
};

// What a life that was played in a process has come to: a crash or a hang is a finding as well.
Outcome OutcomeOf(const Ended& ended);

// Does work in processes of its own, some at a time, until a signal asks to stop: then no new work
// is begun, and what runs is ended. What they leave in the folder for what is temporary is removed,
// however they end.
class Pool
{
public:
    // A process in which no time of the PC passes for so long is ended.
    Pool(int jobs, std::chrono::seconds patience) : m_jobs(jobs), m_patience(patience) {}

    using Work = std::function<std::string(Pulse&)>;

    // Takes work from `next` until that has none, each with the number it is told to `done` by.
    // `tick` is called some times a second. Forks, so no other thread may run. On a stop, all
    // processes are ended, and their work is not told.
    void Run(const std::function<std::optional<Work>()>& next,
             const std::function<void(std::size_t number, const Ended&)>& done,
             const std::function<void()>& tick = {});

private:
    struct Child;
    Child Begin(const Work& work, std::size_t number);
    void Watch(Child& child);

    int m_jobs;
    std::chrono::seconds m_patience;
};

// What one piece of work that plays a life has come to, in a process of its own.
Outcome PlayedAlone(std::chrono::seconds patience, const Pool::Work& work);
