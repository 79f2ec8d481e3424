#include "history/history_writer.h"

#include <algorithm>
#include <string_view>

#include "history/history_files.h"
#include "log/log.h"
#include "log/own_place.h"
#include "platform/file.h"

namespace {

constexpr const wchar_t* kFunction = L"HistoryWriter";

HANDLE OpenHistory(const std::wstring& path, DWORD disposition)
{
    return CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                       FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, disposition,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

// Of plain ASCII, as all JSON is here.
std::string Narrow(const std::wstring& text)
{
    std::string narrow(text.size(), '\0');
    std::ranges::transform(text, narrow.begin(), [](wchar_t c) { return static_cast<char>(c); });
    return narrow;
}

}  // namespace

bool HistoryWriter::Open(UtcTime utc)
{
    if (m_file && m_day == utc / kUnitsPerDay) return true;
    const std::wstring folder = HistoryFolder();
    if (!MakeOwnFolder(folder.substr(0, folder.rfind(L'\\'))) || !MakeOwnFolder(folder))
        return false;
    const LocalTime day = ToLocal(utc, 0);
    const std::wstring path = HistoryPath(folder, day.month, day.day);
    if (IsLink(path)) return false;
    m_file.Reset(OpenHistory(path, OPEN_ALWAYS));
    if (m_file && !IsOwnFile(path, m_file.Get())) m_file.Reset();
    if (m_file && IsOfAnotherYear(utc)) m_file.Reset(OpenHistory(path, CREATE_ALWAYS));
    if (!m_file) return false;
    m_day = utc / kUnitsPerDay;
    EndTornLine();
    m_size = SetFilePointer(m_file.Get(), 0, nullptr, FILE_END);
    return m_size != INVALID_SET_FILE_POINTER;
}

// A line begins with its time. A file whose first line says nothing is kept.
bool HistoryWriter::IsOfAnotherYear(UtcTime utc) const
{
    constexpr std::string_view kBegin = R"({"utc":")";
    constexpr std::size_t kYearLength = 4;
    char first[kBegin.size() + kYearLength] = {};
    DWORD read = 0;
    if (!ReadFile(m_file.Get(), first, sizeof(first), &read, nullptr)) return false;
    const std::string_view line(first, read);
    if (!line.starts_with(kBegin)) return false;
    return line.substr(kBegin.size()) != Narrow(FormatUtc(utc).substr(0, kYearLength));
}

void HistoryWriter::EndTornLine() const
{
    char last = '\n';
    DWORD count = 0;
    if (SetFilePointer(m_file.Get(), -1, nullptr, FILE_END) == INVALID_SET_FILE_POINTER) return;
    if (!ReadFile(m_file.Get(), &last, 1, &count, nullptr) || last == '\n') return;
    WriteFile(m_file.Get(), "\n", 1, &count, nullptr);
}

void HistoryWriter::Append(UtcTime utc, const std::wstring& json)
{
    if (!Open(utc)) return Report(GetLastError());
    if (m_size + json.size() >= kHistoryBytesOfDay) return;
    const std::string line = Narrow(json) + '\n';
    DWORD written = 0;
    if (!WriteFile(m_file.Get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr)) {
        return Report(GetLastError());
    }
    m_size += written;
    // The rest found no room: the next line is not to follow a torn one.
    if (written < line.size()) return Report(ERROR_DISK_FULL);
    m_failure_logged = false;
}

void HistoryWriter::Close() { m_file.Reset(); }

void HistoryWriter::Report(DWORD error)
{
    if (!m_failure_logged) Log(4, kFunction, L"Unable to write the history, GLE=%d", error);
    m_failure_logged = true;
    // Tried anew with the next change: the disk may have room then.
    m_file.Reset();
}
