// Sleep and away mode: what puts the PC to sleep, what the sleep becomes, and what wakes it.
#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "platform/virtual/announcer/announcer.h"
#include "platform/virtual/core/scheduler.h"
#include "platform/virtual/core/waker.h"

namespace virtual_pc {

class Machine;
class Waitable;

// On a PC with S3, a sleep, requested or by idleness, becomes away mode while an away-mode request
// is held and the active plan allows it. Otherwise the services are notified that the PC suspends;
// when they have handled that, all threads stand still, and the clock goes on, until a timer that
// may wake the PC, or a person, does. A PC with Modern Standby turns its display off and runs on.
class SleepState final : public Waker, private Announcer::Listener
{
public:
    SleepState(Machine& machine, Announcer& announcer);
    ~SleepState() override;

    enum class Phase
    {
        awake,
        suspending,  // the services are being told
        asleep,
    };
    Phase phase() const { return m_phase; }
    // A sleep does not end away mode, and neither does a wake timer: only input does.
    bool away() const { return m_away; }
    bool stands_by() const { return m_stands_by; }

    // Puts the PC to sleep, for a program. False when it can neither sleep nor go into away mode;
    // programs cannot ask for Modern Standby. `why` is for the journal.
    bool Ask(std::wstring_view why, bool wake_timers = true);
    // The same for the user. A sleep that does not become away mode ends the power requests but
    // those for away mode.
    bool AskAsUser();
    // How long the PC waits for the services to handle PBT_APMSUSPEND before it falls asleep.
    Duration suspend_notice = std::chrono::seconds{2};
    // Blocks a thread until the PC is neither asleep nor about to be. With the machine held once.
    void AwaitResume(Thread& self);

    // The power button: wakes a PC that sleeps, and counts as input to one that does not.
    void WakeByUser();
    void WakeByTimer() override;
    bool WakeTimersAllowed() const override;

    // Seconds until the idle time-out, and below zero (as an unsigned number) after it; the largest
    // positive number when there is none. Idleness counts from the last input or resume.
    DWORD IdleSecondsLeft() const;

    // Sets the idle timers anew; called when requests, the user or the settings in force may have
    // changed.
    void Reconsider();
    // The PC was switched off, asleep or not; or on, when its user is there.
    void SwitchOff();
    void SwitchOn();
    // Called by User when there is input.
    void OnInput();

private:
    class At final : public Alarm
    {
    public:
        At(SleepState& sleep, void (SleepState::*what)()) : m_sleep(sleep), m_what(what) {}

    private:
        void Due() override { (m_sleep.*m_what)(); }
        SleepState& m_sleep;
        void (SleepState::*m_what)();
    };

    bool Hear(const Announcement& announcement, const std::function<void()>& handled) override;
    bool AwayHeld() const;
    bool KeptAwake() const;
    bool EndsRequests() const;
    std::optional<Instant> IdleDeadline() const;
    void OnIdle();
    void EnterAway();
    void StandBy(std::wstring_view why);
    void Suspend(std::wstring_view why);
    void FallAsleep();
    void Wake(std::wstring_view by);
    void Record(std::wstring_view what, std::wstring_view why);

    Machine& m_machine;
    Phase m_phase = Phase::awake;
    bool m_away = false;
    bool m_stands_by = false;
    bool m_wake_timers = true;
    bool m_unattended = false;  // there was no input since the PC woke
    bool m_button_pressed = false;
    unsigned m_sleeps = 0;
    Instant m_resumed_at{0};
    std::shared_ptr<Waitable> m_resumed;
    At m_idle{*this, &SleepState::OnIdle};
    // Ends the wait for the services.
    At m_patience{*this, &SleepState::FallAsleep};
};

}  // namespace virtual_pc
