#include "restore/journal_format.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace {

constexpr DWORD kSignature = 0x4A564C48;  // "HLVJ"

// At the journal's beginning; the entries follow.
struct Header
{
    DWORD signature;
    DWORD version;
    DWORD entries;
    DWORD checksum;  // of the bytes of the entries
};

// Each entry, before the endpoint's id and the values that were written.
struct EntryHeader
{
    DWORD kind;
    DWORD ac;
    GUID plan;
    GUID setting;
    GUID was;
    DWORD id_length;  // in characters
    DWORD written;
};
static_assert(std::is_trivially_copyable_v<EntryHeader> && sizeof(EntryHeader) == 64);

// FNV-1a.
DWORD Checksum(const BYTE* bytes, std::size_t size)
{
    DWORD sum = 2166136261u;
    for (std::size_t i = 0; i < size; ++i) sum = (sum ^ bytes[i]) * 16777619u;
    return sum;
}

void Append(std::vector<BYTE>& bytes, const void* data, std::size_t size)
{
    const auto* const from = static_cast<const BYTE*>(data);
    bytes.insert(bytes.end(), from, from + size);
}

// Takes data from the front of bytes; false when there are too few.
class Reader
{
public:
    Reader(const std::vector<BYTE>& bytes, std::size_t at) : m_bytes(bytes), m_at(at) {}

    bool Take(void* data, std::size_t size)
    {
        if (m_bytes.size() - m_at < size) return false;
        if (size > 0) std::memcpy(data, m_bytes.data() + m_at, size);
        m_at += size;
        return true;
    }
    bool AtEnd() const { return m_at == m_bytes.size(); }

private:
    const std::vector<BYTE>& m_bytes;
    std::size_t m_at;
};

bool IsNumberUpTo(const ThingValue& value, DWORD most)
{
    return value == ThingValue(value.number()) && value.number() <= most;
}

bool IsPossible(const JournalEntry& entry)
{
    // The device is in normal use before the service changes its mode.
    if (entry.thing.kind == ThingKind::device_mode && entry.was.number() != 0) return false;
    return !entry.wrote.empty() && IsPossible(entry.thing, entry.was) &&
           std::ranges::all_of(entry.wrote, [&](const ThingValue& value) {
               return IsPossible(entry.thing, value);
           });
}

std::optional<JournalEntry> ReadEntry(Reader& reader)
{
    EntryHeader header;
    if (!reader.Take(&header, sizeof(header))) return std::nullopt;
    if (header.id_length > kMostIdLength || header.written > kMostWritten) return std::nullopt;
    JournalEntry entry;
    entry.thing = {.kind = static_cast<ThingKind>(header.kind),
                   .plan = header.plan,
                   .setting = header.setting,
                   .ac = header.ac != 0,
                   .endpoint = std::wstring(header.id_length, L'\0')};
    if (!reader.Take(entry.thing.endpoint.data(), header.id_length * sizeof(wchar_t))) {
        return std::nullopt;
    }
    entry.was = ThingValue(header.was);
    entry.wrote.resize(header.written);
    for (ThingValue& value : entry.wrote) {
        if (!reader.Take(&value.guid, sizeof(value.guid))) return std::nullopt;
    }
    if (!IsPossible(entry)) return std::nullopt;
    return entry;
}

}  // namespace

bool IsPossible(const Thing& thing, const ThingValue& value)
{
    constexpr DWORD kMostMode = 3;
    switch (thing.kind) {
        case ThingKind::active_plan:
            return !IsEqualGUID(value.guid, GUID_NULL);
        case ThingKind::plan_value: {
            const RestorableSetting* const setting = FindRestorable(thing.setting);
            return setting && IsNumberUpTo(value, setting->most);
        }
        case ThingKind::endpoint_mute:
            return !thing.endpoint.empty() && IsNumberUpTo(value, 1);
        case ThingKind::device_mode:
            return IsNumberUpTo(value, kMostMode);
    }
    return false;
}

std::vector<BYTE> WriteJournal(const std::vector<JournalEntry>& entries)
{
    std::vector<BYTE> bytes(sizeof(Header));
    for (const JournalEntry& entry : entries) {
        const Thing& thing = entry.thing;
        const EntryHeader header{.kind = static_cast<DWORD>(thing.kind),
                                 .ac = thing.ac,
                                 .plan = thing.plan,
                                 .setting = thing.setting,
                                 .was = entry.was.guid,
                                 .id_length = static_cast<DWORD>(thing.endpoint.size()),
                                 .written = static_cast<DWORD>(entry.wrote.size())};
        Append(bytes, &header, sizeof(header));
        Append(bytes, thing.endpoint.data(), thing.endpoint.size() * sizeof(wchar_t));
        for (const ThingValue& value : entry.wrote) Append(bytes, &value.guid, sizeof(value.guid));
    }
    const Header header{
        .signature = kSignature,
        .version = kJournalVersion,
        .entries = static_cast<DWORD>(entries.size()),
        .checksum = Checksum(bytes.data() + sizeof(header), bytes.size() - sizeof(header))};
    std::memcpy(bytes.data(), &header, sizeof(header));
    return bytes;
}

std::optional<std::vector<JournalEntry>> ReadJournal(const std::vector<BYTE>& bytes)
{
    Header header;
    Reader reader(bytes, 0);
    if (!reader.Take(&header, sizeof(header)) || header.signature != kSignature ||
        header.version != kJournalVersion || header.entries > kMostEntries ||
        header.checksum != Checksum(bytes.data() + sizeof(header), bytes.size() - sizeof(header))) {
        return std::nullopt;
    }
    std::vector<JournalEntry> entries;
    for (DWORD i = 0; i < header.entries; ++i) {
        const std::optional<JournalEntry> entry = ReadEntry(reader);
        if (!entry) return std::nullopt;
        const auto same = [&](const JournalEntry& other) { return other.thing == entry->thing; };
        if (std::ranges::any_of(entries, same)) return std::nullopt;
        entries.push_back(*entry);
    }
    if (!reader.AtEnd()) return std::nullopt;
    return entries;
}
