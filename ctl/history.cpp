#include "ctl/history.h"

#include <algorithm>
#include <map>

#include "history/history_files.h"
#include "platform/file.h"
#include "platform/owned.h"

namespace {

std::string ReadFileWhole(const std::wstring& path)
{
    const OwnedFile file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                     nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    std::string bytes;
    if (!file) return bytes;
    constexpr DWORD kPart = 1 << 16;
    for (DWORD read = 1; read > 0;) {
        const std::size_t size = bytes.size();
        bytes.resize(size + kPart);
        if (!ReadFile(file.Get(), bytes.data() + size, kPart, &read, nullptr)) read = 0;
        bytes.resize(size + read);
    }
    return bytes;
}

void ReadLine(std::string_view bytes, History& history)
{
    if (bytes.empty()) return;
    // All JSON here is plain ASCII.
    std::wstring text;
    text.reserve(bytes.size());
    for (const char byte : bytes) text += static_cast<wchar_t>(static_cast<unsigned char>(byte));
    std::optional<JsonValue> line = JsonValue::Read(text);
    const auto utc = line ? (*line)[L"utc"].Time() : std::nullopt;
    const std::int64_t tick = line ? (*line)[L"tick"].Number() : -1;
    constexpr std::int64_t kMostTick = 100LL * 366 * 24 * 60 * 60 * 1000;
    if (!utc || tick < 0 || tick > kMostTick) {
        ++history.torn_lines;
        return;
    }
    HistoryRecord record{*utc, tick, (*line)[L"number"].Number(), (*line)[L"boot"].Text(),
                         std::move(*line)};
    history.records.push_back(std::move(record));
}

}  // namespace

void AddLines(std::string_view file, History& history)
{
    for (std::size_t at = 0; at < file.size();) {
        const std::size_t end = std::min(file.find('\n', at), file.size());
        ReadLine(file.substr(at, end - at), history);
        at = end + 1;
    }
}

// Two starts of the PC are put in order by their first records: the clock may have been wrong when
// the PC was started. Within one, ticks never go back; numbers may, where two processes wrote or
// the published state, from which a process takes up the count, could not be written.
void PutInOrder(History& history)
{
    std::map<std::wstring, UtcTime> first;
    for (const HistoryRecord& record : history.records) {
        const auto [place, fresh] = first.try_emplace(record.boot, record.utc);
        if (!fresh) place->second = std::min(place->second, record.utc);
    }
    std::ranges::stable_sort(history.records, [&](const HistoryRecord& a, const HistoryRecord& b) {
        if (a.boot == b.boot) return std::pair(a.tick, a.number) < std::pair(b.tick, b.number);
        return std::pair(first[a.boot], a.boot) < std::pair(first[b.boot], b.boot);
    });
}

History ReadHistory()
{
    History history;
    const std::wstring folder = HistoryFolder();
    if (folder.empty()) return history;
    for (int month = 1; month <= kHistoryMonths; ++month) {
        for (int day = 1; day <= kHistoryDaysOfMonth; ++day) {
            AddLines(ReadFileWhole(HistoryPath(folder, month, day)), history);
        }
    }
    PutInOrder(history);
    return history;
}
