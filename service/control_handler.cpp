// The control handler: receives stop, shutdown, power events, power-setting changes, session
// changes and clock changes from the service control manager, and passes each on to the module or
// the state machine. It keeps no state.

#include <algorithm>
#include <cstring>
#include <iterator>

#include "log/event_source.h"
#include "log/log.h"
#include "platform/power.h"
#include "platform/session.h"
#include "reconciler/facts.h"
#include "service/module.h"
#include "service/service_status.h"
#include "state/activity.h"
#include "state/global_events.h"
#include "state/never_sleep_state.h"

namespace {

constexpr const wchar_t* kHandler = L"CNeverSleepModule::OnServiceCtrlHandler";

using S = CNeverSleepState;
using Setting = POWERBROADCAST_SETTING;

// The power settings that the service registers for, in this order.
const GUID* const kRegistered[] = {
    &GUID_SYSTEM_AWAYMODE,  &GUID_ACDC_POWER_SOURCE, &GUID_POWERSCHEME_PERSONALITY,
    &GUID_MONITOR_POWER_ON, &GUID_STANDBY_TIMEOUT,   &GUID_GLOBAL_USER_PRESENCE,
};

// Copies the setting's data, which need not be aligned.
template <class T>
T DataOf(const Setting& setting)
{
    T data;
    std::memcpy(&data, setting.Data, sizeof(data));
    return data;
}

// For settings whose value fits one byte (0 to 2).
DWORD FirstByteOf(const Setting& setting) { return setting.Data[0]; }

// What the reconciler is to know of the user is noted with what the state machine does then.

void OnAwayMode(DWORD state)
{
    constexpr DWORD kEntered = 1;
    NoteUser(state == kEntered ? UserNotice::away_mode_on : UserNotice::away_mode_off);
    S::OnAwayModeEvent(state);
}

void NotePresent()
{
    const Activity activity(Activity::Kind::fact);
    NoteUser(UserNotice::present);
}

void OnUserPresence(DWORD presence)
{
    constexpr DWORD kPresent = 0;
    if (presence == kPresent) NotePresent();
    S::OnUserPresenceEvent(presence);
}

void OnDisplay(DWORD state)
{
    constexpr DWORD kOn = 1;
    // Windows 7 announces no presence.
    if (state == kOn && S::m_bIsWindows7) NotePresent();
    S::OnDisplayStateChange(state);
}

void OnSuspend()
{
    NoteUser(UserNotice::suspend);
    S::OnSuspend();
}

void OnResume(BOOL attended)
{
    NoteUser(attended ? UserNotice::attended_resume : UserNotice::unattended_resume);
    S::OnResume(attended);
}

// Handlers of setting changes; the first row with the setting's GUID is used.
const struct SettingRow
{
    const GUID* setting;
    Activity::Kind kind;
    void (*action)(const Setting& setting);
} kSettings[] = {
    {&GUID_SYSTEM_AWAYMODE, Activity::Kind::fact,
     [](const Setting& s) { OnAwayMode(FirstByteOf(s)); }},
    {&GUID_POWERSCHEME_PERSONALITY, Activity::Kind::notice,
     [](const Setting& s) { S::OnPowerOptionChanged(DataOf<GUID>(s)); }},
    {&GUID_GLOBAL_USER_PRESENCE, Activity::Kind::notice,
     [](const Setting& s) { OnUserPresence(FirstByteOf(s)); }},
    {&GUID_MONITOR_POWER_ON, Activity::Kind::notice,
     [](const Setting& s) { OnDisplay(FirstByteOf(s)); }},
    {&GUID_ACDC_POWER_SOURCE, Activity::Kind::fact,
     [](const Setting& s) { S::OnPowerSourceChange(DataOf<DWORD>(s)); }},
    {&GUID_STANDBY_TIMEOUT, Activity::Kind::notice,
     [](const Setting& s) { S::OnSleepTimeoutChange(DataOf<DWORD>(s)); }},
};

void OnPowerSettingChange(const Setting& setting)
{
    for (const SettingRow& row : kSettings) {
        if (!IsEqualGUID(*row.setting, setting.PowerSetting)) continue;
        const Activity activity(row.kind);
        return row.action(setting);
    }
    const GUID& guid = setting.PowerSetting;
    ULONGLONG last = 0;
    static_assert(sizeof(last) == sizeof(guid.Data4));
    std::memcpy(&last, guid.Data4, sizeof(last));
    Log(6, kHandler, L"PowerSetting - data(%d), dataLength(%d), Settings(%x-%x-%x-%llx)\n",
        FirstByteOf(setting), setting.DataLength, guid.Data1, guid.Data2, guid.Data3, last);
}

// The power events that the service handles; it ignores all others.
const struct PowerEventRow
{
    DWORD event;
    void (*action)();
} kPowerEvents[] = {
    {PBT_APMSUSPEND, OnSuspend},
    {PBT_APMSTANDBY, OnSuspend},
    {PBT_APMRESUMESUSPEND, [] { OnResume(TRUE); }},  // a user woke the PC
    {PBT_APMRESUMESTANDBY, [] { OnResume(FALSE); }},
    {PBT_APMRESUMEAUTOMATIC, [] { OnResume(FALSE); }},
};

void OnPowerEvent(DWORD event, const void* data)
{
    if (event == PBT_POWERSETTINGCHANGE) {
        if (data) OnPowerSettingChange(*static_cast<const Setting*>(data));
        return;
    }
    const auto* row = std::ranges::find(kPowerEvents, event, &PowerEventRow::event);
    if (row == std::end(kPowerEvents)) return;
    const Activity activity(Activity::Kind::fact);
    row->action();
}

using ControlAction = void (*)(DWORD eventType, const void* eventData);

void Stop(DWORD, const void*) { Module().OnStop(); }
void ReportBadRequest(DWORD, const void*) { LogEvent(L"Bad service request"); }
void ChangeSession(DWORD eventType, const void* eventData)
{
    S::OnSessionChange(eventType, static_cast<const WTSSESSION_NOTIFICATION*>(eventData));
}
void ChangeTime(DWORD, const void*)
{
    const Activity activity(Activity::Kind::fact);
    S::OnSystemTimeChange();
}

const struct ControlRow
{
    DWORD first;
    DWORD last;
    DWORD level;
    const wchar_t* line;   // null for none
    ControlAction action;  // null for none
} kControls[] = {
    {SERVICE_CONTROL_STOP, SERVICE_CONTROL_STOP, 1, L"SERVICE_CONTROL_STOP", Stop},
    {SERVICE_CONTROL_PAUSE, SERVICE_CONTROL_INTERROGATE, 0, nullptr, nullptr},
    {SERVICE_CONTROL_SHUTDOWN, SERVICE_CONTROL_SHUTDOWN, 1, L"SERVICE_CONTROL_SHUTDOWN", Stop},
    {SERVICE_CONTROL_PARAMCHANGE, SERVICE_CONTROL_HARDWAREPROFILECHANGE, 0, nullptr,
     ReportBadRequest},
    {SERVICE_CONTROL_POWEREVENT, SERVICE_CONTROL_POWEREVENT, 6, L"SERVICE_CONTROL_POWEREVENT",
     OnPowerEvent},
    {SERVICE_CONTROL_SESSIONCHANGE, SERVICE_CONTROL_SESSIONCHANGE, 0, nullptr, ChangeSession},
    {SERVICE_CONTROL_PRESHUTDOWN, SERVICE_CONTROL_PRESHUTDOWN, 0, nullptr, nullptr},
    {SERVICE_CONTROL_TIMECHANGE, SERVICE_CONTROL_TIMECHANGE, 6, L"SERVICE_CONTROL_TIMECHANGE",
     ChangeTime},
};

}  // namespace

DWORD WINAPI CNeverSleepModule::OnServiceCtrlHandler(DWORD control, DWORD eventType,
                                                     LPVOID eventData, LPVOID)
{
    const auto* row = std::ranges::find_if(kControls, [&](const ControlRow& known) {
        return known.first <= control && control <= known.last;
    });
    if (row == std::end(kControls)) {
        ReportBadRequest(eventType, eventData);
        return NO_ERROR;
    }
    if (row->line) Log(row->level, kHandler, L"%s", row->line);
    if (row->action) row->action(eventType, eventData);
    return NO_ERROR;
}

void CNeverSleepModule::OnStop()
{
    SignalGlobalEvent(EVENT_SERVICE_STOP);
    ReportServiceState(SERVICE_STOP_PENDING);
    // ServiceMain may have made its last report meanwhile. No report would then follow
    // STOP_PENDING, and the dispatcher would never return.
    if (m_bLastReportMade) ReportServiceState(SERVICE_STOPPED);
}

void CNeverSleepModule::RegisterPowerNotifications()
{
    static_assert(std::size(kRegistered) <= kPowerNotifications);
    for (OwnedPowerNotification& registration : m_powerNotifications) registration.Reset();
    for (std::size_t i = 0; i < std::size(kRegistered); ++i) {
        m_powerNotifications[i].Reset(RegisterPowerSettingNotification(
            g_hServiceStatus.load(), kRegistered[i], DEVICE_NOTIFY_SERVICE_HANDLE));
    }
}
