#include "history/history_files.h"

#include "log/format.h"
#include "platform/file.h"
#include "platform/owned.h"

std::wstring HistoryFolder()
{
    OwnedTaskString common;
    if (FAILED(SHGetKnownFolderPath(FOLDERID_ProgramData, 0, nullptr, common.Receive())) ||
        !common) {
        return {};
    }
    return std::wstring(common.Get()) + LR"(\Orbeq\Holv\History)";
}

std::wstring HistoryPath(const std::wstring& folder, int month, int day)
{
    wchar_t name[24];
    FormatText(name, L"\\%02d-%02d.jsonl", month, day);
    return folder + name;
}
