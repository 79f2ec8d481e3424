// What the machine announces: power events, changes of power settings, sessions, and a clock that
// was set. Rooms announce; the service manager hears for the services and hands on to their control
// handlers.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <vector>

#include "platform/base.h"
#include "platform/virtual/power_plans.h"

namespace virtual_pc {

class Machine;

struct Announcement
{
    DWORD control;                     // SERVICE_CONTROL_...
    DWORD event = 0;                   // PBT_... or WTS_...
    std::optional<GUID> setting = {};  // the power setting that changed
    std::vector<BYTE> data = {};       // its value, or the session's number
};

class Announcer
{
public:
    // Somebody who hears announcements.
    class Listener
    {
    public:
        virtual ~Listener() = default;
        // Takes an announcement, to handle it on a thread of its own, and calls `handled` with the
        // machine held once that is done. False when it does not want to hear it; `handled` is then
        // never called. With the machine held; does not block.
        virtual bool Hear(const Announcement& announcement,
                          const std::function<void()>& handled) = 0;
    };

    explicit Announcer(Machine& machine) : m_machine(machine) {}

    void Add(Listener& listener);
    void Remove(Listener& listener);

    // Tells every listener. `all_handled` is called with the machine held when all who wanted to
    // hear it have handled it; at once when nobody did.
    void Announce(const Announcement& announcement, std::function<void()> all_handled = {});

    // SERVICE_CONTROL_POWEREVENT with a PBT_... event.
    void PowerEvent(DWORD event, std::function<void()> all_handled = {});
    // SERVICE_CONTROL_SESSIONCHANGE: WTS_SESSION_LOGON and the like, and the session's number.
    void SessionEvent(DWORD event, DWORD session);
    // SERVICE_CONTROL_TIMECHANGE.
    void TimeChanged();

    // --- Power settings that are announced when they change ---

    // Whose room knows a setting's value gives the way to ask for it. Asked with the machine held.
    void Provide(const GUID& setting, std::function<std::vector<BYTE>()> present);
    // The value's bytes; nothing for a setting that nobody provides.
    std::optional<std::vector<BYTE>> Present(const GUID& setting) const;
    // Announces the setting's present value (PBT_POWERSETTINGCHANGE).
    void SettingChanged(const GUID& setting);

private:
    Machine& m_machine;
    std::vector<Listener*> m_listeners;
    std::map<GUID, std::function<std::vector<BYTE>()>, GuidLess> m_settings;
};

// A 32-bit value as a setting's bytes.
std::vector<BYTE> SettingBytes(DWORD value);
std::vector<BYTE> SettingBytes(const GUID& value);

}  // namespace virtual_pc
