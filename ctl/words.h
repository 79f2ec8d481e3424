// What the published state says, in the sentences that a person would use.
#pragma once

#include <string>
#include <vector>

#include "ctl/published_state.h"

// Why the PC is awake, or is not kept awake.
std::wstring WhySentence(const PublishedState& state);

// What the service does with its power requests, and why.
std::wstring RequestsSentence(const JsonValue& record);

// Why the service may hold no power request; "" where never-sleep mode is allowed.
std::wstring ReleaseReason(const JsonValue& record);

// A holder of a power request by its file's name, without the path.
std::wstring HolderName(std::wstring_view name);

// The chain of reasons, and what would have to change, a sentence each.
std::vector<std::wstring> ReasonChain(const PublishedState& state);

// What comes next, a sentence each.
std::vector<std::wstring> NextSentences(const JsonValue& record);

// What the reconciler has corrected last; "" for nothing.
std::wstring CorrectionSentence(const JsonValue& record);

// "22:00 to 06:00"
std::wstring HoursText(const JsonValue& record);

// A plan's name where Windows ships it, otherwise its id; "unknown" for "".
std::wstring PlanName(std::wstring_view id);

// "2026-03-02 21:30:05", as the local clock shows it.
std::wstring LocalText(UtcTime time, int minutes_ahead);

// How far the local clock was ahead of UTC, as a record tells.
int MinutesAhead(const JsonValue& record);
// "21:30:05"
std::wstring LocalTimeText(UtcTime time, int minutes_ahead);
