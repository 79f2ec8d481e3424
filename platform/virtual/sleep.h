// Sleep and away mode: what puts the PC to sleep, what the sleep becomes, and what wakes it.
#pragma once

#include <memory>
#include <string_view>

#include "platform/virtual/announcer.h"
#include "platform/virtual/scheduler.h"

namespace virtual_pc {

class Machine;
class Waitable;

// A sleep, asked for or by idleness, becomes away mode while a request for it is held and the
// active plan allows it. Otherwise, where the PC supports S3, the services hear that it suspends;
// when they have dealt with it, all threads stand still, and the clock goes on, until a timer that
// may wake the PC, or somebody, does.
class SleepState final : private Announcer::Listener
{
public:
    explicit SleepState(Machine& machine);
    ~SleepState() override;

    enum class Phase
    {
        awake,
        suspending,  // the services are being told
        asleep,
    };
    Phase phase() const { return m_phase; }
    // Sleep out of away mode does not end it, and neither does a timer: only a person does.
    bool away() const { return m_away; }

    // Puts the PC to sleep, for a program or a person. False when it can neither sleep nor go into
    // away mode. `why` is for the journal.
    bool Ask(std::wstring_view why, bool wake_timers = true);
    // Blocks a thread until the PC is neither asleep nor about to be. With the machine held once.
    void AwaitResume(Thread& self);

    // The power button: wakes a PC that sleeps, and is input to one that does not.
    void WakeByUser();
    // A timer that may wake the PC is due. Nothing unless it sleeps and wake timers are allowed.
    void WakeByTimer();
    // Whether the active plan lets timers wake the PC, and whoever put it to sleep did too.
    bool WakeTimersAllowed() const;

    // Seconds before idleness puts the PC to sleep, and then on below zero; the largest positive
    // number when it never does. Idleness counts from the last input or resume.
    DWORD IdleSecondsLeft() const;

    // Requests, the user or what is in force may have changed: the idle timers are set anew.
    void Reconsider();
    // The user's room: there is input.
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
    std::optional<Instant> IdleDeadline() const;
    void OnIdle();
    void EnterAway();
    void Suspend(std::wstring_view why);
    void FallAsleep();
    void Wake(std::wstring_view by);
    void Record(std::wstring_view what, std::wstring_view why);

    Machine& m_machine;
    Phase m_phase = Phase::awake;
    bool m_away = false;
    bool m_wake_timers = true;
    bool m_unattended = false;  // a timer woke it, and nobody has turned up since
    bool m_button_pressed = false;
    unsigned m_sleeps = 0;
    Instant m_resumed_at{0};
    std::shared_ptr<Waitable> m_resumed;
    At m_idle{*this, &SleepState::OnIdle};
    // The services are not waited for without limit.
    At m_patience{*this, &SleepState::FallAsleep};
};

}  // namespace virtual_pc
