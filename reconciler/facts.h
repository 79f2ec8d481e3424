// The facts from which follows what must hold: what the system has announced, what can be asked of
// it, the settings, and what the service has done.
#pragma once

#include <optional>

#include "platform/com.h"
#include "power/power_policy_manager.h"
#include "state/do_not_disturb.h"
#include "state/never_sleep_state.h"

// What the control handler learns of the user.
enum class UserNotice
{
    suspend,
    unattended_resume,
    attended_resume,
    away_mode_on,
    away_mode_off,
    present,  // the user's presence, or on Windows 7 the display that comes on
};

// What the system has announced of the user so far. `away` may last through a sleep. Its size is
// one that processors read and write at once.
struct alignas(4) UserFacts
{
    bool away = false;
    bool suspended = false;
    bool present = false;  // has come back, and has not left since
};

struct Facts
{
    UserFacts user;

    bool running;  // the state machine is between its start and its end
    bool feature_on;
    ESystemState state;
    bool allowed;  // never-sleep mode, by the decision for the power requests
    bool requests_as_allowed;
    bool requests_released;
    bool sleeps;  // S3 is supported
    bool idle_time_watched;

    std::optional<bool> on_ac;  // the source now; nothing when the system does not know
    bool known_as_on_ac;        // what the service believes
    bool battery_low;

    bool hours_enabled;
    DoNotDisturbHours hours;
    DWORD now;  // minutes since midnight
    bool in_hours;
    bool known_as_in_hours;
    // Milliseconds until the timers fall due.
    std::optional<ULONGLONG> to_start;
    std::optional<ULONGLONG> to_end;

    std::optional<GUID> active_plan;
    CPowerPolicyManager::Plans plans;
    bool values_left;  // of plans, which the last leave could not put back
    bool mutes_left;   // of endpoints that are active
};

// Keeps what is announced. The control handler calls it within an Activity.
void NoteUser(UserNotice notice);

// What is known of the user now. Any thread.
UserFacts KnownUser();

// The facts of this moment. The caller has a complete Standstill.
Facts ReadFacts();
