#include "platform/virtual/power/user.h"

#include <algorithm>
#include <vector>

#include "platform/virtual/announcer/announcer.h"
#include "platform/virtual/core/machine.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/power/sleep.h"

namespace virtual_pc {
namespace {

// The presence as it is announced.
constexpr DWORD kPresent = 0;
constexpr DWORD kInactive = 2;

}  // namespace

User::User(Machine& machine, Announcer& announcer) : m_machine(machine), m_presence(kPresent)
{
    announcer.Provide(GUID_MONITOR_POWER_ON, [this] { return SettingBytes(m_display_on ? 1 : 0); });
    announcer.Provide(GUID_GLOBAL_USER_PRESENCE, [this] {
        return m_machine.AtLeast(kWindows8) ? SettingBytes(m_presence) : std::vector<BYTE>{};
    });
}

void User::Input()
{
    const Hold hold(m_machine);
    if (m_machine.sleep.phase() == SleepState::Phase::asleep) return;
    m_last_input = m_machine.now();
    m_machine.sleep.OnInput();
    SetDisplay(true);
    SetPresence(kPresent);
    m_machine.sleep.Reconsider();
}

void User::Works()
{
    const Hold hold(m_machine);
    if (m_machine.sleep.phase() == SleepState::Phase::asleep) return;
    m_works = true;
    Input();
}

void User::Leaves()
{
    const Hold hold(m_machine);
    m_last_input = last_input();
    m_works = false;
    m_machine.sleep.Reconsider();
}

Instant User::last_input() const { return m_works ? m_machine.now() : m_last_input; }

void User::SwitchOn()
{
    m_last_input = m_machine.now();
    m_display_on = true;
    m_presence = kPresent;
    m_machine.sleep.Reconsider();
}

void User::TurnDisplayOff()
{
    SetDisplay(false);
    SetPresence(kInactive);
}

void User::Reconsider()
{
    const Hold hold(m_machine);
    m_machine.scheduler.Cancel(*this);
    if (!m_machine.on() || !m_display_on || m_works ||
        m_machine.power.Held(PowerRequestDisplayRequired))
        return;
    const DWORD seconds = m_machine.power.InForce(GUID_VIDEO_POWERDOWN_TIMEOUT).value_or(0);
    if (seconds == 0) return;
    const Instant due = m_last_input + std::chrono::seconds{seconds};
    m_machine.scheduler.Set(*this, std::max(due, m_machine.now()));
}

void User::SetDisplay(bool on)
{
    if (m_display_on == on) return;
    m_display_on = on;
    m_machine.journal.Record("display", {{"on", on}});
    m_machine.announcer.SettingChanged(GUID_MONITOR_POWER_ON);
}

void User::SetPresence(DWORD presence)
{
    if (m_presence == presence) return;
    m_presence = presence;
    m_machine.journal.Record("presence", {{"present", presence == kPresent}});
    m_machine.announcer.SettingChanged(GUID_GLOBAL_USER_PRESENCE);
}

}  // namespace virtual_pc
