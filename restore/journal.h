// The restore journal: what is the user's, written down before the service changes it.
//
// The power policy manager and the audio manager keep the user's values in memory, which is gone
// when the process is killed or ends amid never-sleep mode. The journal lies in the registry and
// outlasts it: for each changed thing the user's value and what the service has written since. From
// it the next start restores what the last process left behind.
//
// A journal that cannot be written or read delays and prevents no change; a line in the log says
// so. Any thread; a lock guards the entries, and is held while they are written.
#pragma once

#include <optional>
#include <vector>

#include "restore/things.h"

// Below HKEY_LOCAL_MACHINE.
inline constexpr const wchar_t* kJournalKey = LR"(Software\Orbeq\Holv\Restore)";
inline constexpr const wchar_t* kJournalValue = L"Journal";

// Writes down, on the disk when it returns, that `thing`, which has the value `now`, is about to
// get the value `to`. Does nothing where that is no change, or is written down already.
//
// `now` is empty where it cannot be read. Then what is known already counts: the user's value of an
// earlier change. Where nothing is known, the change is not written down, as it could not be
// restored, and its value is not taken for the user's when the service changes it back.
void NoteChange(const Thing& thing, const std::optional<ThingValue>& now, const ThingValue& to);

// `thing` has the value `value` now: its entry is removed if that is the user's, on the disk with
// the next SettleJournal.
void NoteChanged(const Thing& thing, const ThingValue& value);

// The service has restored what it knows of these things: from now on the values that it wrote
// where it could not read them count as the user's.
void ForgetUnread(bool (*which)(const Thing& thing));

// Waits until what has been put back is on the disk, and then removes its entries there. In the
// other order a power cut between the two would leave the service's values without an entry. Does
// nothing where nothing was put back.
void SettleJournal();

// A copy of the entries, the oldest first.
std::vector<JournalEntry> JournalEntries();

// How many endpoints' mute states wait to be restored, as the last change left it. Reads no
// registry and takes no lock.
int KeptMutes();

// The entry of a thing; nothing when the service has not changed it.
std::optional<JournalEntry> JournalEntryOf(const Thing& thing);

// Removes entries as NoteChanged does, except those that have changed since they were copied.
void RemoveJournalEntries(const std::vector<JournalEntry>& entries);
