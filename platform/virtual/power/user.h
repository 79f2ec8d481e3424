// The person at the PC: input, the display that goes off without it, and the presence that the
// system derives from both.
#pragma once

#include "platform/virtual/core/scheduler.h"

namespace virtual_pc {

class Announcer;
class Machine;

// When the PC is switched on, the display is on and the user present.
class User final : private Alarm
{
public:
    User(Machine& machine, Announcer& announcer);

    // A key press or a mouse movement. It ends away mode, turns the display on and makes the user
    // present, each with an announcement; the first input after a sleep announces the resume by a
    // user. A sleeping PC ignores input: only its power button wakes it (SleepState::WakeByUser).
    void Input();
    // Input without a pause from now on, until Leaves, or until the PC goes to sleep.
    void Works();
    void Leaves();

    Instant last_input() const;
    bool works() const { return m_works; }
    bool display_on() const { return m_display_on; }

    // The PC is switched on, by its user.
    void SwitchOn();

    // The display goes off, and the user counts as inactive.
    void TurnDisplayOff();
    // Sets the display's time-out anew; called when the requests, the plan in force or the power
    // source may have changed.
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
