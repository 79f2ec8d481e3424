#include "platform/virtual/power/battery.h"

#include <cmath>

#include "platform/virtual/core/machine.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/power/power_plans.h"
#include "platform/virtual/power/sleep.h"

namespace virtual_pc {

void Battery::DrainAt(double percent)
{
    const Hold hold(m_machine);
    m_drain = percent;
    Reconsider();
}

void Battery::ChargeAt(double percent)
{
    const Hold hold(m_machine);
    m_charge = percent;
    Reconsider();
}

double Battery::Rate() const
{
    const Power& power = m_machine.power;
    if (!power.battery_present) return 0;
    if (power.source() == PowerSource::ac) return power.battery_percent < 100 ? m_charge : 0;
    const bool runs = m_machine.on() && m_machine.sleep.phase() != SleepState::Phase::asleep;
    return runs && power.battery_percent > 0 ? -m_drain : 0;
}

// Arms the alarm for the next percent. While the rate stays the same, the armed one is kept, so
// that frequent calls do not postpone it.
void Battery::Reconsider()
{
    const Hold hold(m_machine);
    const double rate = Rate();
    if (rate == m_rate && armed()) return;
    m_rate = rate;
    m_machine.scheduler.Cancel(*this);
    if (rate == 0) return;
    const auto step = std::chrono::duration<double, std::ratio<3600>>(1 / std::abs(rate));
    m_machine.scheduler.Set(*this, m_machine.now() + std::chrono::ceil<Duration>(step));
}

void Battery::Due()
{
    BYTE& percent = m_machine.power.battery_percent;
    percent = static_cast<BYTE>(m_rate < 0 ? percent - 1 : percent + 1);
    Reconsider();
}

}  // namespace virtual_pc
