#include "ctl/agent.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "ctl/agent_object.h"
#include "ctl/service_process.h"
#include "ctl/sink.h"
#include "log/format.h"
#include "platform/owned.h"
#include "platform/registry.h"

namespace {

// The features by the names that people type. Indexed by HOLVAgentFeatureEnum.
const struct Feature
{
    std::wstring_view name;
    bool read_only;
    const wchar_t* setting = nullptr;  // the value that the service reads it from when it starts
} kFeatures[] = {
    {L"never-sleep", false, L"EnableNeverSleep"},
    {L"mute-audio", false, L"MuteAudio"},
    {L"do-not-disturb", false, L"EnableDoNotDisturb"},
    {L"app-suspend", false},
    {L"lync-installed", true},
    {L"display-on-lync", false, L"TurnOnDisplayOnLync"},
    {L"sleep-in-hours", false, L"DndToS3"},
    {L"on-battery", false, L"EnableHOLVOnDc"},
    {L"has-battery", true},
};
static_assert(std::size(kFeatures) == E_BATTERY_PRESENT + 1);

const struct EventCode
{
    std::wstring_view name;
    HOLVAgentEventCodeEnum code;
} kEventCodes[] = {
    {L"update-available", E_HOLV_EVENT_UPDATE_AVAILABLE},
    {L"state-change", E_HOLV_EVENT_STATE_CHANGE},
    {L"service-stop", E_HOLV_EVENT_SERVICE_STOP},
};

template <class Row, std::size_t count>
std::wstring NamesOf(const Row (&rows)[count])
{
    std::wstring names;
    for (const Row& row : rows) names += L"\n  " + std::wstring(row.name);
    return names;
}

// A feature by its name or its number; null for neither.
const Feature* FindFeature(const std::wstring& text)
{
    const auto named = std::ranges::find(kFeatures, text, &Feature::name);
    if (named != std::end(kFeatures)) return named;
    const long number = NumberIn(text);
    return number >= 0 && number < static_cast<long>(std::size(kFeatures)) ? &kFeatures[number]
                                                                           : nullptr;
}

HOLVAgentFeatureEnum IdOf(const Feature& feature)
{
    return static_cast<HOLVAgentFeatureEnum>(&feature - kFeatures);
}

int UnknownFeature(const std::wstring& name)
{
    return EndWith(kUnknownName, L"There is no feature \"" + name + L"\". The features are:" +
                                     NamesOf(kFeatures));
}

int ReportFailure(HRESULT result)
{
    if (result == E_ACCESSDENIED) return EndWith(kDenied, L"The system refuses access.");
    if (result == REGDB_E_CLASSNOTREG || AskServiceManager() == ServiceRuns::not_installed) {
        return EndWith(kNotInstalled, L"The service is not installed on this PC.");
    }
    if (AskServiceManager() == ServiceRuns::no) {
        return EndWith(kNotRunning, L"The service does not run, and could not be started.");
    }
    wchar_t line[80];
    FormatText(line, L"The service did not answer: error 0x%08x.", static_cast<DWORD>(result));
    return EndWith(kFailed, line);
}

// "on", "off" or a number; -1 for anything else.
long ValueIn(const std::wstring& text)
{
    if (text == L"on") return 1;
    if (text == L"off") return 0;
    return NumberIn(text);
}

// "22:00" or the minutes since midnight; -1 for anything else, also after 23:59.
long TimeOfDayIn(const std::wstring& text)
{
    constexpr long kMinutesPerDay = 24L * 60;
    const std::size_t colon = text.find(L':');
    long minutes = NumberIn(text);
    if (colon != text.npos) {
        const long hour = NumberIn(text.substr(0, colon));
        const long minute = NumberIn(text.substr(colon + 1));
        minutes = hour < 0 || minute < 0 || minute > 59 ? -1 : hour * 60 + minute;
    }
    return minutes < kMinutesPerDay ? minutes : -1;
}

// A number among the settings' values; nothing where there is none, which is then no
// administrator's.
std::optional<DWORD> StoredNumber(const OwnedKey& key, const wchar_t* name)
{
    DWORD value = 0;
    DWORD size = sizeof(value);
    const LSTATUS status =
        RegGetValueW(key.Get(), nullptr, name, RRF_RT_DWORD, nullptr, &value, &size);
    return status == ERROR_SUCCESS && size == sizeof(value) ? std::optional(value) : std::nullopt;
}

// Gives the running service each feature that its stored value differs from. Adds their number.
HRESULT PutFeaturesBack(const AgentObject& agent, const OwnedKey& key, int& put_back)
{
    for (const Feature& feature : kFeatures) {
        const auto stored = feature.setting ? StoredNumber(key, feature.setting) : std::nullopt;
        if (!stored) continue;
        LONG now = 0;
        HRESULT result = agent.Get()->GetNeverSleepParam(IdOf(feature), &now);
        const auto value = static_cast<LONG>(*stored);
        if (SUCCEEDED(result) && now != value) {
            result = agent.Get()->SetNeverSleepParam(IdOf(feature), value);
            if (SUCCEEDED(result)) {
                Print(std::wstring(feature.name) + L" is " + std::to_wstring(value) + L" again.\n");
                ++put_back;
            }
        }
        if (FAILED(result)) return result;
    }
    return S_OK;
}

// The same for the do-not-disturb hours, limited to the day as the service does when it starts.
HRESULT PutHoursBack(const AgentObject& agent, const OwnedKey& key, int& put_back)
{
    constexpr DWORD kDay = 24 * 60;
    UINT start = 0;
    UINT end = 0;
    const HRESULT result = agent.Get()->GetDoNotDisturbTimeInterval(&start, &end);
    if (FAILED(result)) return result;
    const UINT wanted_start =
        std::min(StoredNumber(key, L"DoNotDisturbStart").value_or(start), kDay);
    const UINT wanted_end = std::min(StoredNumber(key, L"DoNotDisturbEnd").value_or(end), kDay);
    if (wanted_start == start && wanted_end == end) return S_OK;
    const HRESULT set = agent.Get()->SetDoNotDisturbTimeInterval(wanted_start, wanted_end);
    if (FAILED(set)) return set;
    Print(L"the do-not-disturb hours are as stored again.\n");
    ++put_back;
    return S_OK;
}

int RaiseEvent(const AgentObject& agent, const EventCode& event, bool refuse)
{
    SinkConnection sink(agent.Get(), refuse);
    if (FAILED(sink.result())) return ReportFailure(sink.result());
    HOLVAgentEventCodeEnum now{};
    HRESULT result = agent.Get()->put_NeverSleepEventCode(event.code);
    if (SUCCEEDED(result)) result = agent.Get()->get_NeverSleepEventCode(&now);
    if (FAILED(result)) return ReportFailure(result);
    const auto current = std::ranges::find(kEventCodes, now, &EventCode::code);
    Print(sink.heard());
    return EndWith(kDone, L"The event code is " +
                              (current == std::end(kEventCodes) ? std::to_wstring(now)
                                                                : std::wstring(current->name)) +
                              L".");
}

}  // namespace

int RunGet(const CommandArguments& arguments)
{
    if (arguments.size() > 1) return kUsage;
    const Feature* asked = arguments.empty() ? nullptr : FindFeature(arguments[0]);
    if (!arguments.empty() && !asked) return UnknownFeature(arguments[0]);
    const AgentObject agent;
    if (FAILED(agent.result())) return ReportFailure(agent.result());
    for (const Feature& feature : kFeatures) {
        if (asked && asked != &feature) continue;
        LONG value = 0;
        const HRESULT result = agent.Get()->GetNeverSleepParam(IdOf(feature), &value);
        if (FAILED(result)) return ReportFailure(result);
        Print((asked ? std::wstring() : std::wstring(feature.name) + L" ") +
              std::to_wstring(value) + L"\n");
    }
    return kDone;
}

int RunSet(const CommandArguments& arguments)
{
    if (arguments.size() != 2) return kUsage;
    const Feature* feature = FindFeature(arguments[0]);
    if (!feature) return UnknownFeature(arguments[0]);
    const std::wstring name(feature->name);
    if (feature->read_only) return EndWith(kReadOnly, name + L" can only be read.");
    const long value = ValueIn(arguments[1]);
    if (value != 0 && value != 1) {
        return EndWith(kOutOfRange, name + L" is on or off, not \"" + arguments[1] + L"\".");
    }
    const AgentObject agent;
    if (FAILED(agent.result())) return ReportFailure(agent.result());
    const HRESULT result = agent.Get()->SetNeverSleepParam(IdOf(*feature), value == 1 ? 1 : 0);
    if (FAILED(result)) return ReportFailure(result);
    return EndWith(kDone, name + (value ? L" is on." : L" is off."));
}

int RunInterval(const CommandArguments& arguments)
{
    if (!arguments.empty() && arguments.size() != 2) return kUsage;
    UINT hours[2] = {};
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const long minutes = TimeOfDayIn(arguments[i]);
        if (minutes < 0) {
            return EndWith(kOutOfRange,
                           L"\"" + arguments[i] + L"\" is no time of day between 00:00 and 23:59.");
        }
        hours[i] = static_cast<UINT>(minutes);
    }
    const AgentObject agent;
    if (FAILED(agent.result())) return ReportFailure(agent.result());
    HRESULT result = S_OK;
    if (!arguments.empty()) result = agent.Get()->SetDoNotDisturbTimeInterval(hours[0], hours[1]);
    if (SUCCEEDED(result)) result = agent.Get()->GetDoNotDisturbTimeInterval(&hours[0], &hours[1]);
    if (FAILED(result)) return ReportFailure(result);
    wchar_t line[64];
    FormatText(line, L"do not disturb from %02u:%02u to %02u:%02u", hours[0] / 60, hours[0] % 60,
               hours[1] / 60, hours[1] % 60);
    return EndWith(kDone, line);
}

int RunEvent(const CommandArguments& arguments)
{
    const bool refuse = arguments.size() == 2 && arguments[1] == L"refuse";
    if (arguments.empty() || arguments.size() > (refuse ? 2u : 1u)) return kUsage;
    auto event = std::ranges::find(kEventCodes, arguments[0], &EventCode::name);
    if (event == std::end(kEventCodes)) {
        event = std::ranges::find(kEventCodes, NumberIn(arguments[0]),
                                  [](const EventCode& known) { return long{known.code}; });
    }
    if (event == std::end(kEventCodes)) {
        return EndWith(kUnknownName, L"There is no event code \"" + arguments[0] +
                                         L"\". The codes are:" + NamesOf(kEventCodes));
    }
    const AgentObject agent;
    if (FAILED(agent.result())) return ReportFailure(agent.result());
    return RaiseEvent(agent, *event, refuse);
}

int RunVersion(const CommandArguments& arguments)
{
    if (!arguments.empty()) return kUsage;
    const AgentObject agent;
    OwnedAutomationString version;
    HRESULT result = agent.result();
    if (SUCCEEDED(result)) result = agent.Get()->GetNeverSleepApiVersion(version.Receive());
    if (FAILED(result)) return ReportFailure(result);
    return EndWith(kDone, std::wstring(L"The service is version ") + version.Get() + L".");
}

int RunRefresh(const CommandArguments& arguments)
{
    if (!arguments.empty()) return kUsage;
    switch (AskServiceManager()) {
        case ServiceRuns::no:
            return EndWith(kNotRunning,
                           L"The service does not run. It reads its settings when it starts.");
        case ServiceRuns::not_installed:
            return EndWith(kNotInstalled, L"The service is not installed on this PC.");
        case ServiceRuns::unknown:
            return EndWith(kDenied, L"The system refuses access.");
        case ServiceRuns::yes:
            break;
    }
    OwnedKey key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, LR"(Software\Orbeq\Holv\User)", 0, KEY_QUERY_VALUE,
                      key.Receive()) != ERROR_SUCCESS) {
        return EndWith(kFailed, L"The settings cannot be read.");
    }
    const AgentObject agent;
    int put_back = 0;
    HRESULT result = agent.result();
    if (SUCCEEDED(result)) result = PutFeaturesBack(agent, key, put_back);
    if (SUCCEEDED(result)) result = PutHoursBack(agent, key, put_back);
    if (FAILED(result)) return ReportFailure(result);
    return put_back ? kDone : EndWith(kDone, L"All is as it is stored.");
}
