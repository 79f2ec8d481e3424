#include "platform/virtual/power/sleep.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/com.h"
#include "platform/service.h"
#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/thread.h"
#include "platform/virtual/core/waitable.h"
#include "platform/virtual/power/battery.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/power/processor.h"
#include "platform/virtual/power/user.h"

namespace virtual_pc {
namespace {

class Resume final : public Waitable
{
public:
    std::string_view Kind() const override { return "resume"; }
};

// How long after the sleep time-out power requests end on a PC with Modern Standby that runs on its
// battery.
constexpr Duration kRequestsOutlastTimeOut = std::chrono::minutes{5};

}  // namespace

SleepState::SleepState(Machine& machine, Announcer& announcer)
    : m_machine(machine), m_resumed(std::make_shared<Resume>())
{
    announcer.Provide(GUID_SYSTEM_AWAYMODE, [this] { return SettingBytes(m_away ? 1 : 0); });
    announcer.Add(*this);
}

SleepState::~SleepState() { m_machine.announcer.Remove(*this); }

// The power source, the plan and the sleep time-out in force determine when the PC is idle and how
// its battery drains.
bool SleepState::Hear(const Announcement& announcement, const std::function<void()>&)
{
    if (!announcement.setting) return false;
    for (const GUID& changed :
         {GUID_ACDC_POWER_SOURCE, GUID_POWERSCHEME_PERSONALITY, GUID_STANDBY_TIMEOUT}) {
        if (!IsEqualGUID(*announcement.setting, changed)) continue;
        Reconsider();
        m_machine.battery.Reconsider();
    }
    return false;
}

// --- Going to sleep ---

bool SleepState::AwayHeld() const
{
    const Power& power = m_machine.power;
    return power.s3_supported && power.Held(PowerRequestAwayModeRequired) &&
           power.InForce(GUID_ALLOW_AWAYMODE).value_or(0) != 0;
}

bool SleepState::Ask(std::wstring_view why, bool wake_timers)
{
    const Hold hold(m_machine);
    if (m_phase != Phase::awake) return true;
    if (AwayHeld()) {
        EnterAway();
        return true;
    }
    if (!m_machine.power.s3_supported) return false;
    m_wake_timers = wake_timers;
    Suspend(why);
    return true;
}

bool SleepState::AskAsUser()
{
    const Hold hold(m_machine);
    const Power& power = m_machine.power;
    const bool sleeps = power.s3_supported || power.modern_standby;
    if (m_phase == Phase::awake && sleeps && !AwayHeld()) m_machine.power.EndRequests();
    if (!power.modern_standby) return Ask(L"the user");
    StandBy(L"the user");
    return true;
}

void SleepState::StandBy(std::wstring_view why)
{
    if (m_stands_by) return;
    m_stands_by = true;
    m_machine.user.Leaves();
    Record(L"stands by", why);
    m_machine.user.TurnDisplayOff();
    Reconsider();
}

void SleepState::EnterAway()
{
    if (m_away) return;
    m_away = true;
    m_machine.user.Leaves();
    m_machine.journal.Record("away mode", {{"on", true}});
    m_machine.announcer.SettingChanged(GUID_SYSTEM_AWAYMODE);
    m_machine.user.TurnDisplayOff();
    Reconsider();
}

void SleepState::Suspend(std::wstring_view why)
{
    m_phase = Phase::suspending;
    m_button_pressed = false;
    m_resumed->Unsignal();
    m_machine.scheduler.Cancel(m_idle);
    m_machine.user.Leaves();
    Record(L"suspends", why);
    m_machine.scheduler.Set(m_patience, m_machine.now() + suspend_notice);
    m_machine.announcer.PowerEvent(PBT_APMSUSPEND, [this, sleep = ++m_sleeps] {
        if (m_phase == Phase::suspending && sleep == m_sleeps) FallAsleep();
    });
}

void SleepState::FallAsleep()
{
    m_phase = Phase::asleep;
    m_machine.scheduler.Cancel(m_patience);
    m_machine.user.TurnDisplayOff();
    m_machine.processor.SetRunning(false);
    m_machine.battery.Reconsider();
    Record(L"asleep", L"");
    m_machine.scheduler.StandStill();
    // The power button was pressed when the suspend could no longer be stopped.
    if (m_button_pressed) WakeByUser();
}

void SleepState::AwaitResume(Thread& self)
{
    if (m_phase == Phase::awake) return;
    Waitable::WaitFor(m_machine, self, {m_resumed}, false, kNever);
}

// --- Waking ---

bool SleepState::WakeTimersAllowed() const
{
    return m_wake_timers && m_machine.power.InForce(GUID_ALLOW_RTC_WAKE).value_or(0) != 0;
}

void SleepState::WakeByTimer()
{
    const Hold hold(m_machine);
    if (m_phase == Phase::asleep && WakeTimersAllowed()) Wake(L"a timer");
}

void SleepState::WakeByUser()
{
    const Hold hold(m_machine);
    if (m_phase == Phase::suspending) {
        m_button_pressed = true;
        return;
    }
    if (m_phase == Phase::asleep) Wake(L"the user");
    m_machine.user.Input();
}

void SleepState::Wake(std::wstring_view by)
{
    m_phase = Phase::awake;
    m_unattended = true;
    m_wake_timers = true;
    m_resumed_at = m_machine.now();
    m_machine.processor.SetRunning(true);
    m_machine.battery.Reconsider();
    Record(L"wakes", by);
    m_machine.scheduler.GoOn();
    m_machine.announcer.PowerEvent(PBT_APMRESUMEAUTOMATIC);
    m_resumed->Signal();
    Reconsider();
}

void SleepState::OnInput()
{
    if (m_phase != Phase::awake) return;
    if (std::exchange(m_stands_by, false)) Record(L"wakes", L"the user");
    if (std::exchange(m_unattended, false)) m_machine.announcer.PowerEvent(PBT_APMRESUMESUSPEND);
    if (!std::exchange(m_away, false)) return;
    m_machine.journal.Record("away mode", {{"on", false}});
    m_machine.announcer.SettingChanged(GUID_SYSTEM_AWAYMODE);
}

// --- The power switch ---

void SleepState::SwitchOff()
{
    const Hold hold(m_machine);
    m_machine.scheduler.Cancel(m_patience);
    m_phase = Phase::awake;
    m_away = m_unattended = m_stands_by = false;
    m_wake_timers = true;
    m_machine.scheduler.GoOn();
    m_resumed->Signal();
    Reconsider();
    m_machine.battery.Reconsider();
}

void SleepState::SwitchOn()
{
    const Hold hold(m_machine);
    m_resumed_at = m_machine.now();
    m_machine.processor.SetRunning(true);
    m_machine.battery.Reconsider();
    m_machine.user.SwitchOn();
}

// --- Idleness ---

// A request for the display alone does not keep the system awake.
bool SleepState::KeptAwake() const { return m_machine.power.Held(PowerRequestSystemRequired); }

// On its battery, a PC with Modern Standby ends the requests that outlast its sleep time-out.
bool SleepState::EndsRequests() const
{
    return m_machine.power.modern_standby && m_machine.power.source() == PowerSource::dc;
}

std::optional<Instant> SleepState::IdleDeadline() const
{
    const DWORD seconds = m_machine.power.InForce(GUID_STANDBY_TIMEOUT).value_or(0);
    if (seconds == 0) return std::nullopt;
    return std::max(m_machine.user.last_input(), m_resumed_at) + std::chrono::seconds{seconds};
}

DWORD SleepState::IdleSecondsLeft() const
{
    const Hold hold(m_machine);
    const std::optional<Instant> deadline = IdleDeadline();
    if (!deadline) return std::numeric_limits<std::int32_t>::max();
    const auto left = std::chrono::floor<std::chrono::seconds>(*deadline - m_machine.now());
    return static_cast<DWORD>(left.count());
}

// The idle timer fires only when all threads are blocked, even if it is due at once, so that a
// thread which changes several requests in a row is not interrupted by sleep.
void SleepState::Reconsider()
{
    const Hold hold(m_machine);
    m_machine.user.Reconsider();
    m_machine.scheduler.Cancel(m_idle);
    const std::optional<Instant> deadline = IdleDeadline();
    if (!m_machine.on() || m_phase != Phase::awake || m_stands_by || m_machine.user.works() ||
        !deadline)
        return;
    if (KeptAwake() && !EndsRequests()) return;
    if (m_away && AwayHeld()) return;
    const Instant due = *deadline + (KeptAwake() ? kRequestsOutlastTimeOut : Duration::zero());
    m_machine.scheduler.Set(m_idle, std::max(due, m_machine.now()));
}

void SleepState::OnIdle()
{
    if (KeptAwake()) m_machine.power.EndRequests();
    if (m_machine.power.modern_standby) return StandBy(L"idle");
    Ask(L"idle");
    // When the PC cannot sleep, the next Reconsider sets the timer again.
}

void SleepState::Record(std::wstring_view what, std::wstring_view why)
{
    m_machine.journal.Record("sleep", {{"what", std::wstring(what)}, {"why", std::wstring(why)}});
}

}  // namespace virtual_pc
