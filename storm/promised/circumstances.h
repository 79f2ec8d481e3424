// Where the user is, what the PC and the service's process do, and since when: all that decides
// what must hold at the moment.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "pc/script.h"
#include "platform/virtual/core/machine.h"
#include "storm/promised/belongings.h"

// The settings, as a run of the service has loaded them and the control interface has set them
// since.
struct ServiceSettings
{
    bool feature_on = true;
    bool hours_enabled = true;
    DWORD hours_start = 1320;
    DWORD hours_end = 360;
    bool sleeps_in_hours = false;
    bool on_battery = true;
};

class Circumstances
{
public:
    using Instant = virtual_pc::Instant;
    using Duration = virtual_pc::Duration;

    explicit Circumstances(virtual_pc::Machine& pc);

    void Hear(const virtual_pc::Effect& effect);
    void Deed(const ScriptLine& line);
    // Looks anew at what has no effect of its own.
    void Look();
    Moment moment() const;

    // --- The user ---
    // Works at a PC that is awake, since; nothing when he does not.
    std::optional<Instant> there() const { return m_there; }
    // What the service had to restore was there at this time: as the user left a PC that then went
    // into never-sleep mode, or where that is off, as it ended.
    Instant restored_since() const;
    // Nothing else has happened in the minute before the return, or since.
    bool plain_return() const { return m_plain_return && m_there && m_last_deed <= *m_there; }
    // Since when no deed has touched the PC, and it has not woken.
    Instant idle_since() const;

    // --- The service ---
    bool running() const { return m_state == L"running"; }
    bool stopped() const { return m_state == L"stopped"; }
    // A kill, a power cut or a stop amid faults may have left something for the next start.
    bool left_for_the_next_start() const { return m_unclean; }
    std::optional<Instant> stopping() const;
    Instant state_since() const { return m_state_at; }
    const ServiceSettings& settings() const { return m_settings; }
    Instant settings_since() const { return m_settings_at; }

    // --- The PC ---
    // Faults, slow calls or late notices stand, or no leave and return has gone by since.
    bool trouble() const { return m_trouble || m_lied || m_settings_unknown; }
    // A function has answered otherwise than it did: what it changed is lost for good.
    bool lied() const { return m_lied; }
    Instant woke_at() const { return m_woke_at; }
    // Whether never-sleep mode may hold its requests now; nothing when that depends on the past.
    std::optional<bool> allowed() const;
    Instant allowed_since() const;
    // How often the service holds a request, by POWER_REQUEST_TYPE.
    int Held(int type) const { return m_held[static_cast<std::size_t>(type)]; }
    Instant held_since() const { return m_held_at; }
    bool others_hold() const;
    Instant device_changed_at() const { return m_device_at; }

private:
    void HearService(const virtual_pc::Effect& effect);
    void HearRequest(const virtual_pc::Effect& effect);
    void HearSetting(const virtual_pc::Effect& effect);
    void LoadSettings();
    void NoteFault(const ScriptLine& line);
    bool RegistryFails() const;
    bool DefaultFails() const;
    bool InHours() const;
    bool Standing() const { return !m_standing.empty(); }

    virtual_pc::Machine& m_pc;

    std::optional<Instant> m_there;
    Instant m_left_at{0};
    Instant m_gone_at{0};  // m_left_at of the last absence with away mode or sleep
    bool m_plain_return = false;
    Instant m_last_deed{0};
    Instant m_deed_before{0};
    Instant m_woke_at{0};
    Instant m_power_event_at{0};

    std::wstring m_state = L"stopped";
    Instant m_state_at{0};
    DWORD m_process = 0;
    bool m_unclean = false;
    ServiceSettings m_settings;
    Instant m_settings_at{0};
    Instant m_feature_at{0};

    std::set<std::string> m_standing;  // faults, by the commands that began them
    bool m_trouble = false;
    bool m_lied = false;
    bool m_settings_unknown = false;  // what the service has read at its start, or been told since
    bool m_default_unknown = false;   // the default endpoint, at its start or at a change since
    bool m_left_since_trouble = false;

    std::array<int, 3> m_held{};
    Instant m_held_at{0};
    std::map<std::wstring, int> m_others;  // by type and reason
    Instant m_source_at{0};
    Instant m_clock_at{0};
    Instant m_clock_unsure_until{0};
    Instant m_device_at{-1};
};
