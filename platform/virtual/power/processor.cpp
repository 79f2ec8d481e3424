#include "platform/virtual/power/processor.h"

#include "platform/virtual/core/machine.h"

namespace virtual_pc {

void Processor::SetLoad(DWORD percent)
{
    const Hold hold(m_machine);
    m_times = times();
    m_since = m_machine.now();
    m_load = percent;
}

void Processor::SetRunning(bool running)
{
    const Hold hold(m_machine);
    m_times = times();
    m_since = m_machine.now();
    m_running = running;
}

Processor::Times Processor::times() const
{
    const Hold hold(m_machine);
    Times times = m_times;
    if (!m_running) return times;
    const Duration span = m_machine.now() - m_since;
    const Duration busy = span * m_load / 100;
    const Duration busy_in_kernel = busy / 4;
    times.idle += span - busy;
    times.kernel += span - busy + busy_in_kernel;
    times.user += busy - busy_in_kernel;
    return times;
}

}  // namespace virtual_pc
