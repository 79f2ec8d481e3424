// The bytes of a journal.
#pragma once

#include <optional>
#include <vector>

#include "restore/things.h"

inline constexpr DWORD kJournalVersion = 1;
inline constexpr std::size_t kMostJournalBytes = 256 * 1024;

// Whether the thing can have the value. ReadJournal refuses a journal with an entry of another.
bool IsPossible(const Thing& thing, const ThingValue& value);

std::vector<BYTE> WriteJournal(const std::vector<JournalEntry>& entries);

// Nothing when the bytes are not those of a whole journal of this version, whose every entry is one
// that the service could have written.
std::optional<std::vector<JournalEntry>> ReadJournal(const std::vector<BYTE>& bytes);
