#include "restore/journal.h"

#include <algorithm>
#include <atomic>

#include "log/log.h"
#include "platform/lock.h"
#include "platform/owned.h"
#include "platform/registry.h"
#include "restore/journal_format.h"

namespace {

constexpr const wchar_t* kFunction = L"RestoreJournal";

CriticalSection g_lock;
// With the lock held.
bool g_loaded = false;
bool g_failure_logged = false;
std::vector<JournalEntry> g_entries;
std::atomic<int> g_kept_mutes = 0;  // of them
// Put back, but perhaps not on the disk yet: written with the entries until SettleJournal.
std::vector<JournalEntry> g_put_back;
// What the service has written where it could not read what was there.
struct Unread
{
    Thing thing;
    ThingValue written;
};
std::vector<Unread> g_unread;  // one for a thing

// --- In the registry ---

// Reads the journal's value. ERROR_FILE_NOT_FOUND when there is none.
LSTATUS ReadBytes(std::vector<BYTE>& bytes)
{
    DWORD size = 0;
    const auto get = [&](void* data) {
        return RegGetValueW(HKEY_LOCAL_MACHINE, kJournalKey, kJournalValue, RRF_RT_REG_BINARY,
                            nullptr, data, &size);
    };
    if (const LSTATUS error = get(nullptr)) return error;
    if (size > kMostJournalBytes) return ERROR_MORE_DATA;
    bytes.resize(size);
    const LSTATUS error = get(bytes.data());
    bytes.resize(size);
    return error;
}

// The first use reads what an earlier process has left. A journal that cannot be used is passed
// over: the next change replaces it.
void Load()
{
    if (g_loaded) return;
    g_loaded = true;
    constexpr int kAttempts = 3;  // as the next change would replace what is not read now
    std::vector<BYTE> bytes;
    LSTATUS error = ReadBytes(bytes);
    for (int attempt = 1; attempt < kAttempts && error != ERROR_SUCCESS; ++attempt) {
        if (error == ERROR_FILE_NOT_FOUND) return;
        error = ReadBytes(bytes);
    }
    if (error != ERROR_SUCCESS) {
        Log(3, kFunction, L"Unable to read the restore journal, GLE=%d", error);
    } else if (auto entries = ReadJournal(bytes)) {
        g_entries = std::move(*entries);
    } else {
        Log(3, kFunction, L"The restore journal is damaged or of another version, ignoring it");
    }
}

// Another file of the registry than the journal's holds the plans, and reaches the disk at another
// time. Any key in it serves to flush it whole.
constexpr const wchar_t* kSystemKey = LR"(SYSTEM\CurrentControlSet)";

void FlushPlans()
{
    OwnedKey key;
    if (RegOpenKeyW(HKEY_LOCAL_MACHINE, kSystemKey, key.Receive()) == ERROR_SUCCESS) {
        RegFlushKey(key.Get());
    }
}

LSTATUS WriteEntries(const std::vector<JournalEntry>& entries, bool flush)
{
    OwnedKey key;
    if (const LSTATUS error = RegCreateKeyW(HKEY_LOCAL_MACHINE, kJournalKey, key.Receive())) {
        return error;
    }
    if (entries.empty()) {
        const LSTATUS error = RegDeleteValueW(key.Get(), kJournalValue);
        return error == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : error;
    }
    const std::vector<BYTE> bytes = WriteJournal(entries);
    const LSTATUS error = RegSetValueExW(key.Get(), kJournalValue, 0, REG_BINARY, bytes.data(),
                                         static_cast<DWORD>(bytes.size()));
    return error == ERROR_SUCCESS && flush ? RegFlushKey(key.Get()) : error;
}

// Writes the entries. Callers that only removed some need not flush: should a power cut lose the
// removal, the next start finds the user's values in place, and changes nothing.
void Save(bool flush)
{
    std::vector<JournalEntry> entries = g_entries;
    entries.insert(entries.end(), g_put_back.begin(), g_put_back.end());
    const LSTATUS error = WriteEntries(entries, flush);
    if (error != ERROR_SUCCESS && !g_failure_logged) {
        Log(3, kFunction, L"Unable to write the restore journal, GLE=%d", error);
    }
    g_failure_logged = error != ERROR_SUCCESS;
}

void CountMutes()
{
    g_kept_mutes = static_cast<int>(std::ranges::count(
        g_entries, ThingKind::endpoint_mute, [](const auto& entry) { return entry.thing.kind; }));
}

auto Find(const Thing& thing) { return std::ranges::find(g_entries, thing, &JournalEntry::thing); }

// Takes back the entry of a thing that the service has restored, and changes again before
// SettleJournal. It keeps the values that the service wrote before: one may still be on the disk.
std::optional<JournalEntry> TakePutBack(const Thing& thing)
{
    const auto found = std::ranges::find(g_put_back, thing, &JournalEntry::thing);
    if (found == g_put_back.end()) return std::nullopt;
    JournalEntry entry = *found;
    g_put_back.erase(found);
    return entry;
}

void AddWritten(JournalEntry& entry, const ThingValue& value)
{
    if (entry.wrote.size() == kMostWritten) entry.wrote.erase(entry.wrote.begin());
    entry.wrote.push_back(value);
}

// The user's value, as an earlier change has found it.
std::optional<ThingValue> LastKnown(const Thing& thing)
{
    for (const auto* entries : {&g_entries, &g_put_back}) {
        const auto found = std::ranges::find(*entries, thing, &JournalEntry::thing);
        if (found != entries->end()) return found->was;
    }
    return std::nullopt;
}

// Whether `now` is the service's own, written where it could not read the user's: then so is `to`,
// to which it is about to be changed.
bool ChangesUnread(const Thing& thing, const ThingValue& now, const ThingValue& to)
{
    const auto unread = std::ranges::find(g_unread, thing, &Unread::thing);
    if (unread == g_unread.end()) return false;
    if (unread->written == now) {
        unread->written = to;
        return true;
    }
    g_unread.erase(unread);
    return false;
}

// Enters a change into the entries. False when they stay as they are.
bool Enter(const Thing& thing, const ThingValue& now, const ThingValue& to)
{
    const auto entry = Find(thing);
    if (entry == g_entries.end()) {
        if (ChangesUnread(thing, now, to) || now == to ||
            g_entries.size() + g_put_back.size() >= kMostEntries ||
            thing.endpoint.size() > kMostIdLength) {
            return false;
        }
        JournalEntry fresh = TakePutBack(thing).value_or(JournalEntry{thing, now, {}});
        if (fresh.was != now) fresh = {thing, now, {}};
        if (!fresh.Wrote(to)) AddWritten(fresh, to);
        g_entries.push_back(std::move(fresh));
    } else if (now == entry->was || entry->Wrote(now)) {
        if (to == entry->was || entry->Wrote(to)) return false;
        AddWritten(*entry, to);
    } else if (now != to) {
        // The user, or a policy, has changed it since: that is now the user's value.
        *entry = {thing, now, {to}};
    } else {
        g_entries.erase(entry);
    }
    return true;
}

}  // namespace

void NoteChange(const Thing& thing, const std::optional<ThingValue>& now, const ThingValue& to)
{
    const ScopedLock lock(g_lock);
    Load();
    const std::optional<ThingValue> known = now ? now : LastKnown(thing);
    // As the plan without an id, which is activated where the user's could not be learned: with one
    // such entry, the next start would refuse them all.
    if (!IsPossible(thing, to) || (known && !IsPossible(thing, *known))) return;
    if (known) {
        if (Enter(thing, *known, to)) Save(true);
        CountMutes();
    } else {
        std::erase_if(g_unread, [&](const Unread& unread) { return unread.thing == thing; });
        g_unread.push_back({thing, to});
    }
}

void NoteChanged(const Thing& thing, const ThingValue& value)
{
    const ScopedLock lock(g_lock);
    Load();
    const auto entry = Find(thing);
    if (entry == g_entries.end() || entry->was != value) return;
    g_put_back.push_back(*entry);
    g_entries.erase(entry);
    CountMutes();
}

void ForgetUnread(bool (*which)(const Thing&))
{
    const ScopedLock lock(g_lock);
    std::erase_if(g_unread, [which](const Unread& unread) { return which(unread.thing); });
}

void SettleJournal()
{
    const ScopedLock lock(g_lock);
    if (g_put_back.empty()) return;
    FlushPlans();
    g_put_back.clear();
    Save(false);
}

int KeptMutes() { return g_kept_mutes; }

std::vector<JournalEntry> JournalEntries()
{
    const ScopedLock lock(g_lock);
    Load();
    return g_entries;
}

std::optional<JournalEntry> JournalEntryOf(const Thing& thing)
{
    const ScopedLock lock(g_lock);
    Load();
    const auto entry = Find(thing);
    if (entry == g_entries.end()) return std::nullopt;
    return *entry;
}

void RemoveJournalEntries(const std::vector<JournalEntry>& entries)
{
    const ScopedLock lock(g_lock);
    for (const JournalEntry& entry : entries) {
        if (std::erase(g_entries, entry) > 0) g_put_back.push_back(entry);
    }
    CountMutes();
}
