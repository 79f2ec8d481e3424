// What the machine announces: power events, changes of power settings, sessions, and a clock that
// was set. The facets of the PC announce; the service manager listens, and passes each announcement
// on to the control handlers of the services.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <vector>

#include "platform/base.h"
#include "platform/virtual/base/guid.h"
#include "platform/virtual/base/time.h"

namespace virtual_pc {

class Machine;

struct Announcement
{
    DWORD control;                     // SERVICE_CONTROL_...
    DWORD event = 0;                   // PBT_... or WTS_...
    std::optional<GUID> setting = {};  // the power setting that changed
    std::vector<BYTE> data = {};       // its value, the session's number, or the two times
};

// How notices of the system come to programs when they do not come at once, and once each: these
// announcements, and those of the sound system.
struct NoticeDelivery
{
    Duration late{0};
    bool doubled = false;
    // A notice replaces an earlier one of its kind that is still waiting: a power setting's value,
    // a sound endpoint's change.
    bool merged = false;
};

class Announcer
{
public:
    // With the machine held.
    NoticeDelivery delivery;

    // Receives every announcement until it is removed.
    class Listener
    {
    public:
        virtual ~Listener() = default;
        // Queues the announcement, to be handled on another thread, which then calls `handled` with
        // the machine held. Returns false when the listener ignores it or is done with it already;
        // `handled` is then never called. Called with the machine held; must not block.
        virtual bool Hear(const Announcement& announcement,
                          const std::function<void()>& handled) = 0;
    };

    explicit Announcer(Machine& machine) : m_machine(machine) {}

    void Add(Listener& listener);
    void Remove(Listener& listener);

    // Passes the announcement to every listener. Calls `all_handled` with the machine held once
    // every listener that queued it has handled it; at once when none queued it.
    void Announce(const Announcement& announcement, std::function<void()> all_handled = {});

    // SERVICE_CONTROL_POWEREVENT with a PBT_... event.
    void PowerEvent(DWORD event, std::function<void()> all_handled = {});
    // SERVICE_CONTROL_SESSIONCHANGE: WTS_SESSION_LOGON and the like, and the session's number.
    void SessionEvent(DWORD event, DWORD session);
    // SERVICE_CONTROL_TIMECHANGE, with the new and the old time.
    void TimeChanged(CalendarTime now, CalendarTime before);

    // --- Power settings that are announced when they change ---

    // Registers how to read a setting's present value; called by the facet that has the setting.
    // `present` is called with the machine held; it returns no bytes where the PC's version of
    // Windows lacks the setting, which is then never announced.
    void Provide(const GUID& setting, std::function<std::vector<BYTE>()> present);
    // The value's bytes; nothing for a setting that no facet provides.
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
