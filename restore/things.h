// The things of the user's that never-sleep mode changes, and their values.
#pragma once

#include <string>
#include <vector>

#include "platform/com.h"
#include "platform/power.h"

enum class ThingKind : DWORD
{
    active_plan = 1,
    plan_value = 2,     // one setting of one plan, for AC or DC
    endpoint_mute = 3,  // 0 or 1
    device_mode = 4,    // of the platform device; 0 in normal use
};

struct Thing
{
    static Thing ActivePlan() { return {.kind = ThingKind::active_plan}; }
    static Thing PlanValue(const GUID& of, const GUID& name, BOOL onAc)
    {
        return {.kind = ThingKind::plan_value, .plan = of, .setting = name, .ac = onAc != FALSE};
    }
    static Thing EndpointMute(std::wstring id)
    {
        return {.kind = ThingKind::endpoint_mute, .endpoint = std::move(id)};
    }
    static Thing DeviceMode() { return {.kind = ThingKind::device_mode}; }

    bool operator==(const Thing& other) const
    {
        return kind == other.kind && IsEqualGUID(plan, other.plan) &&
               IsEqualGUID(setting, other.setting) && ac == other.ac && endpoint == other.endpoint;
    }

    ThingKind kind{};
    // Of a plan value.
    GUID plan{};
    GUID setting{};
    bool ac = false;
    // Of a mute state: the endpoint's id.
    std::wstring endpoint = {};
};

// A plan's GUID, or a number.
struct ThingValue
{
    ThingValue() = default;
    explicit ThingValue(const GUID& scheme) : guid(scheme) {}
    explicit ThingValue(DWORD number) { guid.Data1 = number; }

    DWORD number() const { return guid.Data1; }
    bool operator==(const ThingValue& other) const { return IsEqualGUID(guid, other.guid); }

    GUID guid{};
};

// A plan setting that the service writes, and the highest value that it can have.
struct RestorableSetting
{
    const GUID* setting;
    const GUID* subgroup;
    DWORD most;
};

inline constexpr RestorableSetting kRestorableSettings[] = {
    {&GUID_STANDBY_TIMEOUT, &GUID_SLEEP_SUBGROUP, 0xFFFFFFFF},
    {&GUID_ALLOW_RTC_WAKE, &GUID_SLEEP_SUBGROUP, 2},
    {&GUID_ALLOW_AWAYMODE, &GUID_SLEEP_SUBGROUP, 1},
    {&GUID_PROCESSOR_THROTTLE_MINIMUM, &GUID_PROCESSOR_SETTINGS_SUBGROUP, 100},
    {&GUID_PROCESSOR_THROTTLE_MAXIMUM, &GUID_PROCESSOR_SETTINGS_SUBGROUP, 100},
    {&GUID_DEVICE_POWER_POLICY_VIDEO_BRIGHTNESS, &GUID_VIDEO_SUBGROUP, 100},
    {&GUID_LOCK_CONSOLE_ON_WAKE, &NO_SUBGROUP_GUID, 1},
};

// The setting's row; null for a setting that the service does not write.
inline const RestorableSetting* FindRestorable(const GUID& setting)
{
    for (const RestorableSetting& known : kRestorableSettings) {
        if (IsEqualGUID(*known.setting, setting)) return &known;
    }
    return nullptr;
}

// One thing's entry in the journal.
struct JournalEntry
{
    // The value that the service wrote is not the user's, and is what a restore replaces.
    bool Wrote(const ThingValue& value) const
    {
        for (const ThingValue& written : wrote) {
            if (written == value) return true;
        }
        return false;
    }

    bool operator==(const JournalEntry&) const = default;

    Thing thing;
    ThingValue was;  // the user's
    // The values that the service has written since, the latest last.
    std::vector<ThingValue> wrote;
};

// Bounds of a journal.
inline constexpr std::size_t kMostEntries = 128;
inline constexpr std::size_t kMostWritten = 4;     // values of an entry
inline constexpr std::size_t kMostIdLength = 512;  // characters of an endpoint's id
