#include "ctl/words.h"

#include <algorithm>
#include <iterator>

#include "log/format.h"

namespace {

// Each reason, as WhySentence says it.
const struct ReasonRow
{
    std::wstring_view reason;
    const wchar_t* sentence;
} kReasons[] = {
    {L"feature_off",
     L"Never-sleep mode is switched off: Windows alone decides when this PC sleeps."},
    {L"starting", L"The service is starting."},
    {L"user_there", L"The PC is in normal use: its user is there."},
    {L"nobody_left", L"The PC is in normal use: nobody has left it since the service started."},
    {L"away_mode",
     L"The PC is kept awake in never-sleep mode: it would be asleep, and is in away mode instead."},
    {L"woken", L"The PC is in never-sleep mode: it is awake, and its user is not there."},
    {L"processor_idle",
     L"The PC is kept awake in never-sleep mode, with little to do: its user is away."},
    {L"hours", L"The PC is kept awake, quietly: it is within the do-not-disturb hours."},
    {L"asleep", L"The PC is going to sleep, asleep, or has just been woken."},
};

// Why the service holds no power request, the first that holds.
const struct ReleaseRow
{
    bool (*holds)(const JsonValue& record);
    const wchar_t* because;
    const wchar_t* to_change;  // what would have the PC left awake
} kReleases[] = {
    {[](const JsonValue& r) { return !r[L"feature"].Flag(); }, L"never-sleep mode is switched off",
     L"To have it kept awake: holvctl set never-sleep on."},
    {[](const JsonValue& r) {
         return !r[L"power"][L"mains"].Flag() && !r[L"power"][L"battery_allowed"].Flag();
     },
     L"the PC runs on battery, on which never-sleep mode is switched off",
     L"To have it kept awake: plug it in, or holvctl set on-battery on."},
    {[](const JsonValue& r) {
         return !r[L"power"][L"mains"].Flag() && r[L"power"][L"battery_low"].Flag();
     },
     L"the battery is low", L"To have it kept awake: plug it in."},
    {[](const JsonValue& r) {
         const JsonValue& hours = r[L"hours"];
         return hours[L"on"].Flag() && hours[L"inside"].Flag() && hours[L"sleep"].Flag();
     },
     L"the PC is to sleep within the do-not-disturb hours",
     L"To have it kept awake in the hours: holvctl set sleep-in-hours off."},
};

const ReleaseRow* ReleaseOf(const JsonValue& record)
{
    const auto row =
        std::ranges::find_if(kReleases, [&](const ReleaseRow& r) { return r.holds(record); });
    return row == std::end(kReleases) ? nullptr : row;
}

bool InNeverSleepMode(const JsonValue& record)
{
    const std::wstring& state = record[L"state"].Text();
    return state == L"HOLV_ACTIVE" || state == L"HOLV_IDLE" || state == L"HOLV_DND";
}

// Of a service that does not run.
std::wstring NotRunningSentence(const PublishedState& state)
{
    switch (state.service) {
        case Published::stopped:
            return L"The service has stopped: Windows alone decides when this PC sleeps.";
        case Published::killed:
            return L"The service was ended without a word (killed, or crashed): what it had "
                   L"changed "
                   L"stays until it starts again, or until holvctl restore.";
        case Published::not_running:
            return L"The service does not run: Windows alone decides when this PC sleeps.";
        case Published::not_installed:
            return L"The service is not installed on this PC.";
        default:
            return L"The service runs, but has published nothing yet.";
    }
}

// What would have to change, where never-sleep mode is allowed.
std::wstring WhatToChange(const JsonValue& record)
{
    if (record[L"requests"].Text() == L"released" &&
        record[L"correction"][L"rule"].Text() == L"no_s3") {
        return L"This PC does not support S3, without which never-sleep mode cannot keep it awake.";
    }
    if (InNeverSleepMode(record)) {
        return L"To let it sleep: holvctl set never-sleep off, or set sleep-in-hours on for the "
               L"do-not-disturb hours. The user's return ends never-sleep mode by itself.";
    }
    return L"When its user has been away for the plan's sleep time-out, never-sleep mode begins "
           L"and "
           L"keeps it awake. To let it sleep then: holvctl set never-sleep off.";
}

void AddCircumstances(std::vector<std::wstring>& chain, const JsonValue& record)
{
    const JsonValue& power = record[L"power"];
    chain.push_back(power[L"mains"].Flag() ? L"The PC runs on mains power."
                                           : L"The PC runs on battery.");
    if (!record[L"hours"][L"on"].Flag()) {
        chain.push_back(L"The do-not-disturb hours are switched off.");
    } else {
        chain.push_back(L"The do-not-disturb hours are " + HoursText(record) +
                        (record[L"hours"][L"inside"].Flag() ? L": it is within them."
                                                            : L": it is outside them."));
    }
}

}  // namespace

std::wstring WhySentence(const PublishedState& state)
{
    const JsonValue& record = state.record;
    if (state.service != Published::running) return NotRunningSentence(state);
    const auto row = std::ranges::find(kReasons, record[L"reason"].Text(), &ReasonRow::reason);
    std::wstring sentence =
        row == std::end(kReasons) ? L"The state is " + record[L"state"].Text() : row->sentence;
    if (InNeverSleepMode(record) && record[L"requests"].Text() == L"released") {
        const ReleaseRow* release = ReleaseOf(record);
        sentence = std::wstring(L"The PC is in never-sleep mode, but may sleep: ") +
                   (release ? release->because : L"it cannot be kept awake without S3") + L".";
    }
    return sentence;
}

std::wstring RequestsSentence(const JsonValue& record)
{
    const std::wstring& requests = record[L"requests"].Text();
    if (requests == L"held") {
        return L"The service holds its power requests: instead of sleeping, the PC goes into away "
               L"mode.";
    }
    if (requests == L"partly") return L"The service holds one of its two power requests.";
    const ReleaseRow* release = ReleaseOf(record);
    return std::wstring(L"The service holds no power request") +
           (release ? std::wstring(L": ") + release->because : std::wstring()) + L".";
}

std::wstring ReleaseReason(const JsonValue& record)
{
    const ReleaseRow* release = ReleaseOf(record);
    return release ? release->because : L"";
}

std::vector<std::wstring> ReasonChain(const PublishedState& state)
{
    const JsonValue& record = state.record;
    std::vector<std::wstring> chain{WhySentence(state)};
    if (state.service != Published::running) {
        if (state.service != Published::nothing && state.service != Published::not_installed) {
            chain.push_back(L"To have it kept awake: start the service.");
        }
        return chain;
    }
    if (!record[L"rule"].IsNull()) chain.push_back(L"The rule: " + record[L"rule"].Text());
    chain.push_back(RequestsSentence(record));
    AddCircumstances(chain, record);
    for (std::wstring& next : NextSentences(record)) chain.push_back(std::move(next));
    if (std::wstring correction = CorrectionSentence(record); !correction.empty()) {
        chain.push_back(std::move(correction));
    }
    const ReleaseRow* release = ReleaseOf(record);
    chain.push_back(release ? release->to_change : WhatToChange(record));
    return chain;
}

// The timers count whole minutes from when they are armed, so that they fall due up to a minute
// after the boundary that a person reads in the hours.
std::vector<std::wstring> NextSentences(const JsonValue& record)
{
    constexpr std::pair<const wchar_t*, const wchar_t*> kTimers[] = {
        {L"idle_check", L"the service looks whether the PC is idle"},
        {L"hours_begin", L"the do-not-disturb hours begin"},
        {L"hours_end", L"the do-not-disturb hours end"},
    };
    std::vector<std::pair<UtcTime, const wchar_t*>> due;
    for (const auto& [name, what] : kTimers) {
        if (const auto time = record[L"next"][name].Time()) due.emplace_back(*time, what);
    }
    std::ranges::sort(due);
    std::vector<std::wstring> sentences;
    sentences.reserve(due.size());
    for (const auto& [time, what] : due) {
        sentences.push_back(L"At " + LocalTimeText(time, MinutesAhead(record)) + L" " + what +
                            L".");
    }
    return sentences;
}

std::wstring CorrectionSentence(const JsonValue& record)
{
    const JsonValue& correction = record[L"correction"];
    const auto time = correction[L"utc"].Time();
    if (!time) return {};
    return L"At " + LocalTimeText(*time, MinutesAhead(record)) +
           L" the service corrected itself: " + correction[L"wrong"].Text() + L"; it tried " +
           correction[L"remedy"].Text() + L".";
}

std::wstring HolderName(std::wstring_view name)
{
    const std::size_t last = name.rfind(L'\\');
    return std::wstring(last == name.npos ? name : name.substr(last + 1));
}

std::wstring HoursText(const JsonValue& record)
{
    const auto start = static_cast<unsigned>(record[L"hours"][L"start"].Number());
    const auto end = static_cast<unsigned>(record[L"hours"][L"end"].Number());
    wchar_t text[48];
    FormatText(text, L"%02u:%02u to %02u:%02u", start / 60, start % 60, end / 60, end % 60);
    return text;
}

std::wstring PlanName(std::wstring_view id)
{
    constexpr std::pair<std::wstring_view, const wchar_t*> kPlans[] = {
        {L"a1841308-3541-4fab-bc81-f71556f20b4a", L"Power saver"},
        {L"8c5e7fda-e8bf-4a96-9a85-a6e23a8c635c", L"High performance"},
        {L"381b4222-f694-41f0-9685-ff5bb260df2e", L"Balanced"},
    };
    for (const auto& [known, name] : kPlans) {
        if (known == id) return name;
    }
    return id.empty() ? L"unknown" : std::wstring(id);
}

int MinutesAhead(const JsonValue& record)
{
    return static_cast<int>(record[L"minutes_ahead"].Number());
}

std::wstring LocalText(UtcTime time, int minutes_ahead)
{
    const LocalTime local = ToLocal(time, minutes_ahead);
    wchar_t text[32];
    FormatText(text, L"%04d-%02d-%02d ", local.year, local.month, local.day);
    return text + LocalTimeText(time, minutes_ahead);
}

std::wstring LocalTimeText(UtcTime time, int minutes_ahead)
{
    const LocalTime local = ToLocal(time, minutes_ahead);
    wchar_t text[16];
    FormatText(text, L"%02d:%02d:%02d", local.hour, local.minute, local.second);
    return text;
}
