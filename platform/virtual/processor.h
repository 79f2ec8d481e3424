// The processors' load, and the times they have idled and worked.
#pragma once

#include "platform/virtual/time.h"

namespace virtual_pc {

class Machine;

class Processor
{
public:
    explicit Processor(Machine& machine) : m_machine(machine) {}

    // How busy they are from now on, in percent; 0 from the start.
    DWORD load() const { return m_load; }
    void SetLoad(DWORD percent);

    struct Times
    {
        Duration idle{0};
        Duration kernel{0};  // with the idle time, as the system counts it
        Duration user{0};
    };
    // Since the machine was switched on, without the time asleep.
    Times times() const;

    // Asleep they neither idle nor work.
    void SetRunning(bool running);

private:
    Machine& m_machine;
    DWORD m_load = 0;
    bool m_running = true;
    Times m_times;       // up to m_since
    Instant m_since{0};  // how long the present load is on
};

}  // namespace virtual_pc
