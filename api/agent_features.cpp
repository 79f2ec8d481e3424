#include "api/agent_features.h"

#include <cstddef>
#include <iterator>

#include "power/driver_api.h"
#include "power/machine_power.h"
#include "restore/restoring.h"
#include "settings/settings.h"
#include "settings/settings_store.h"
#include "state/activity.h"
#include "state/global_events.h"
#include "state/never_sleep_state.h"

namespace {

using S = CNeverSleepState;

void OnNeverSleep(DWORD before, DWORD now)
{
    if (now == before) return;
    if (now == 0) {
        S::StopNeverSleep();
        // The monitor runs in HOLV_ACTIVE only, and would enter HOLV_IDLE.
        CancelGlobalTimer(TIMER_CPU_USAGE);
        RestoreWhatIsTheUsers(SendDeviceMode);
    } else {
        S::StartNeverSleep();
        SignalGlobalEvent(EVENT_ENTER_S0);
    }
}

void OnDoNotDisturb(DWORD, DWORD) { S::RefreshDoNotDisturbState(); }

void OnPowerRequests(DWORD, DWORD) { S::ConfigurePowerRequests(); }

struct Feature
{
    const wchar_t* name;
    const wchar_t* on;   // how log lines show the value 1
    const wchar_t* off;  // and every other value
    const wchar_t* value_name = nullptr;
    Setting* setting = nullptr;
    // Called after the setting is stored, with its old and its new value.
    void (*changed)(DWORD before, DWORD now) = nullptr;
    BOOL (*read)() = nullptr;  // for a feature that is not a setting
};

// Indexed by HOLVAgentFeatureEnum.
constexpr Feature kFeatures[] = {
    {L"Holv State", L"enabled", L"disabled", L"EnableNeverSleep", &g_bEnableNeverSleep,
     OnNeverSleep},
    {L"Mute Audio", L"mute", L"do not mute", L"MuteAudio", &g_bMuteAudio},
    {L"DND", L"enabled", L"disabled", L"EnableDoNotDisturb", &g_bEnableDoNotDisturb,
     OnDoNotDisturb},
    {L"App Suspend", L"enabled", L"disabled", L"EnableAppSuspend", &g_bEnableAppSuspend},
    {.name = L"Lync Controls", .on = L"enabled", .off = L"disabled", .read = &S::ShowLyncControls},
    {L"Display on Lync", L"enabled", L"disabled", L"TurnOnDisplayOnLync", &g_bTurnOnDisplayOnLync},
    {L"DND to S3", L"enabled", L"disabled", L"DndToS3", &g_bDndToS3, OnDoNotDisturb},
    {L"Holv on DC", L"enabled", L"disabled", L"EnableHOLVOnDc", &g_bEnableHolvOnDC,
     OnPowerRequests},
    {.name = L"Mobile platform", .on = L"true", .off = L"false", .read = &IsBatteryPresent},
};
static_assert(std::size(kFeatures) == E_BATTERY_PRESENT + 1);

// Null for an unknown number.
const Feature* FeatureOf(HOLVAgentFeatureEnum feature)
{
    const auto number = static_cast<DWORD>(feature);
    return number < std::size(kFeatures) ? &kFeatures[number] : nullptr;
}

}  // namespace

const wchar_t* FeatureName(HOLVAgentFeatureEnum feature)
{
    const Feature* known = FeatureOf(feature);
    return known ? known->name : L"";
}

const wchar_t* FeatureValueWord(HOLVAgentFeatureEnum feature, DWORD value)
{
    const Feature* known = FeatureOf(feature);
    if (!known) return L"";
    return value == 1 ? known->on : known->off;
}

void SetFeature(HOLVAgentFeatureEnum feature, DWORD value)
{
    const Feature* known = FeatureOf(feature);
    if (!known || !known->setting) return;
    const Activity change(Activity::Kind::fact);
    RegWriteDWord(known->value_name, value);
    const DWORD before = known->setting->exchange(value);
    if (known->changed) known->changed(before, value);
}

DWORD GetFeature(HOLVAgentFeatureEnum feature)
{
    const Feature* known = FeatureOf(feature);
    if (!known) return 0;
    return known->setting ? known->setting->load() : static_cast<DWORD>(known->read());
}
