// How the charge of the battery falls and rises. The power source itself is in power.h.
#pragma once

#include "platform/virtual/core/scheduler.h"

namespace virtual_pc {

class Machine;

class Battery final : private Alarm
{
public:
    explicit Battery(Machine& machine) : m_machine(machine) {}

    // Percent an hour by which a running PC drains the battery, and by which mains power charges
    // it; 0 keeps the charge constant. A sleeping PC drains nothing.
    void DrainAt(double percent);
    void ChargeAt(double percent);

    // Computes the rate anew; called when the power source or the sleep phase may have changed.
    void Reconsider();

private:
    void Due() override;
    // The present rate in percent an hour; negative while the battery drains.
    double Rate() const;

    Machine& m_machine;
    double m_drain = 0;
    double m_charge = 0;
    double m_rate = 0;  // of the step under way
};

}  // namespace virtual_pc
