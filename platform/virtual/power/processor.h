// The processors' load, and the times they have idled and worked.
#pragma once

#include "platform/virtual/base/time.h"

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
        Duration kernel{0};  // includes the idle time, as GetSystemTimes reports it
        Duration user{0};
    };
    // Since the machine was switched on, without the time asleep.
    Times times() const;

    // False while the PC sleeps: the times then stand still.
    void SetRunning(bool running);

private:
    Machine& m_machine;
    DWORD m_load = 0;
    bool m_running = true;
    Times m_times;       // up to m_since
    Instant m_since{0};  // since when the present load or standstill lasts
};

}  // namespace virtual_pc
