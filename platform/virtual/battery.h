// The battery's charge, as it drains and is charged. What runs the PC is the power room's to say.
#pragma once

#include "platform/virtual/scheduler.h"

namespace virtual_pc {

class Machine;

class Battery final : private Alarm
{
public:
    explicit Battery(Machine& machine) : m_machine(machine) {}

    // Percent an hour that a running PC takes out of it, and that mains power puts in; 0 for a
    // charge that stays as it is. Asleep the PC takes nothing.
    void DrainAt(double percent);
    void ChargeAt(double percent);

    // What runs the PC, or whether it runs, may have changed.
    void Reconsider();

private:
    void Due() override;
    // Percent an hour, as things are; below zero when it drains.
    double Rate() const;

    Machine& m_machine;
    double m_drain = 0;
    double m_charge = 0;
    double m_rate = 0;  // of the step under way
};

}  // namespace virtual_pc
