// The person at the PC: input, the display that goes off without it, and what the system makes of
// both.
#pragma once

#include "platform/virtual/scheduler.h"

namespace virtual_pc {

class Machine;

// Switched on, the display is on and the user present.
class User final : private Alarm
{
public:
    explicit User(Machine& machine);

    // A key, a movement of the mouse. It ends away mode, turns the display on and makes the user
    // present, each of which is announced; a PC that a timer has woken learns that somebody is
    // there. A sleeping PC does not notice: that takes its power button (SleepState::WakeByUser).
    void Input();
    // Input without a pause from now on, until he leaves or the PC goes to sleep.
    void Works();
    void Leaves();

    Instant last_input() const;
    bool works() const { return m_works; }
    bool display_on() const { return m_display_on; }

    // The display goes off, and the user counts as inactive.
    void TurnDisplayOff();
    // The requests, the plan in force or the source may have changed.
    void Reconsider();

private:
    void Due() override { TurnDisplayOff(); }
    void SetDisplay(bool on);
    void SetPresence(DWORD presence);

    Machine& m_machine;
    Instant m_last_input{0};
    bool m_works = false;
    bool m_display_on = true;
    DWORD m_presence;
};

}  // namespace virtual_pc
