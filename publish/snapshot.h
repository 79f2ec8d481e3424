// What the service tells others of itself: the state, why, and what comes next.
#pragma once

#include <optional>

#include "platform/com.h"
#include "power/power_policy_manager.h"
#include "reconciler/facts.h"
#include "reconciler/reconciler.h"
#include "state/listed_holders.h"

// Why the state is what it is.
enum class Reason
{
    feature_off,
    starting,
    user_there,
    nobody_left,     // in normal use, and no user has left or come since the service started
    away_mode,       // the PC would sleep, and is in away mode instead
    woken,           // from sleep, without a user
    processor_idle,  // in never-sleep mode, with little to do
    hours,           // within the do-not-disturb hours
    asleep,
};

// Whether the service holds its two power requests.
enum class Requests
{
    released,
    partly,
    held,
};

// The number of minutes since midnight, or of milliseconds in GetTickCount64's count.
struct Snapshot
{
    ESystemState state;
    std::uint64_t since;
    Reason reason;
    bool feature_on;
    bool away, suspended, user_present;
    bool on_ac, battery_low, battery_allowed;
    Requests requests;
    bool hours_enabled, in_hours, sleeps_in_hours;
    DWORD hours_start, hours_end;
    int kept_mutes;
    Correction correction;
    CPowerPolicyManager::KnownPlans plans;
    ListedHolders holders;

    bool operator==(const Snapshot&) const = default;
};

// When the timers fall due.
struct NextTimers
{
    std::optional<ULONGLONG> idle_check, hours_begin, hours_end;

    bool operator==(const NextTimers&) const = default;
};

// Takes snapshots after each pass of the event loop, so it asks the system for as little as can be:
// the time, and what has changed since the last one. Waits for no operation. One thread at a time.
class Camera
{
public:
    Snapshot Take();

private:
    // When it was first used, since when there is the state that a service starts in.
    std::optional<std::uint64_t> m_began;
    Guarded<CPowerPolicyManager::KnownPlans>::Copy m_plans;
    Guarded<ListedHolders>::Copy m_holders;
};

NextTimers TakeNextTimers();

// A state and its reason, where the state is that of an earlier moment.
Reason ReasonOf(ESystemState state, const UserFacts& user, bool featureOn);

// For programs: "away_mode" and so on.
const wchar_t* ReasonName(Reason reason);
// The rule of the reconciler's that says so, as a sentence; null where none does.
const wchar_t* RuleBehind(Reason reason);
