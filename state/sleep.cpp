// Requests sleep, handles suspend and resume, and reads the system's list of power requests.

#include <cwchar>
#include <string_view>
#include <utility>

#include "log/log.h"
#include "platform/command.h"
#include "platform/kernel.h"
#include "platform/owned.h"
#include "platform/power.h"
#include "power/machine_power.h"
#include "state/activity.h"
#include "state/feature.h"
#include "state/global_events.h"
#include "state/never_sleep_state.h"

namespace {

constexpr const wchar_t* kListRequests = L"powercfg -requests";
constexpr int kLineLength = 1024;  // characters, the terminator included

// Starts the command that lists the power requests. Empty, after a log line, when it cannot be
// started.
OwnedCommandOutput RunListing(const wchar_t* function)
{
    OwnedCommandOutput output(_wpopen(kListRequests, L"rt"));
    if (!output) {
        Log(3, function, L"Failed to execute %s, error=%d\n", kListRequests, GetLastError());
    }
    return output;
}

// Logs each line of the output and passes it to `take`. A line longer than the buffer comes in
// several parts; `begins` is true for the first.
template <class Take>
void ReadLines(const OwnedCommandOutput& output, const wchar_t* function, const Take& take)
{
    wchar_t line[kLineLength];
    for (bool begins = true; std::fgetws(line, kLineLength, output.Get());) {
        Log(6, function, L"%s", line);
        take(std::wstring_view(line), begins);
        begins = std::wcschr(line, L'\n') != nullptr;
    }
}

// Runs until the PC has woken again, when SetSuspendState returns.
DWORD WINAPI SuspendThreadProc(LPVOID)
{
    constexpr const wchar_t* kFunction = L"SuspendThreadProc";
    Log(6, kFunction, L"In suspend thread requesting suspend");
    if (IsS3Available() && !SetSuspendState(FALSE, TRUE, FALSE)) {
        Log(6, kFunction, L"SetSuspendState failed gle:%d", GetLastError());
    }
    Log(6, kFunction, L"In suspend thread, resumed from suspend");
    const Activity refresh(Activity::Kind::notice);
    // The do-not-disturb hours may have begun or ended during the sleep.
    CNeverSleepState::RefreshDoNotDisturbState();
    return 0;
}

}  // namespace

// The number of threads needs no limit: each ends when its request for sleep returns, and when the
// PC wakes all of them return.
void CNeverSleepState::GotToSleepNow()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::GotToSleepNow";
    if (m_bOverride) {
        Log(1, kFunction, L"Override detected will not initiate suspend");
        return;
    }
    Log(6, kFunction, L"Creating suspend thread");
    const OwnedHandle thread(CreateThread(nullptr, 0, SuspendThreadProc, nullptr, 0, nullptr));
}

void CNeverSleepState::OnSuspend()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::OnSuspend";
    Log(1, kFunction, L"*****System is Suspending*****");
    if (IsFeatureOff(kFunction)) return;
    m_bAttendedWake = FALSE;
    m_ullLastSusResEventTime = GetTickCount64();
    EnterS3State();
    LogOutstandingPowerRequests();
}

void CNeverSleepState::OnResume(BOOL attended)
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::OnResume";
    Log(1, kFunction, L"*****System is Resuming [%s]*****", attended ? L"attended" : L"unattended");
    if (IsFeatureOff(kFunction)) return;
    m_ullLastSusResEventTime = GetTickCount64();
    if (!attended) return EnterNeverSleepStateWithDelay();
    m_bOverride = TRUE;
    m_bAttendedWake = TRUE;
    SignalGlobalEvent(EVENT_ENTER_S0);
}

// --- The list of power requests ---

BOOL CNeverSleepState::IsDisplayRequiredSet()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::IsDisplayRequiredSet";
    enum class Section
    {
        none,
        display,
        system,
        away_mode,
    };
    constexpr std::pair<const wchar_t*, Section> kHeaders[] = {
        {L"DISPLAY:\n", Section::display},
        {L"SYSTEM:\n", Section::system},
        {L"AWAYMODE:\n", Section::away_mode},
    };
    Section section = Section::none;
    int processes = 0;
    const OwnedCommandOutput output = RunListing(kFunction);
    if (!output) return FALSE;
    ReadLines(output, kFunction, [&](std::wstring_view line, bool begins) {
        for (const auto& [header, begun] : kHeaders) {
            if (!begins || line != header) continue;
            section = begun;
            return;
        }
        const bool of_process = line.find(L"[PROCESS]") != line.npos;
        if (of_process && section == Section::display) ++processes;
    });
    return processes > 0;
}

void LogOutstandingPowerRequests()
{
    constexpr const wchar_t* kFunction = L"LogOutstandingPowerRequests";
    const OwnedCommandOutput output = RunListing(kFunction);
    if (!output) return;
    Log(6, kFunction, L"Output from %s", kListRequests);
    ReadLines(output, kFunction, [](std::wstring_view, bool) {});
}
