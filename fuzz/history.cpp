// The history's file of a day, of any content, as "holvctl report" reads it, on one PC for all
// inputs: each line is taken or counted as torn, and each day that is told of has a day's hours.

#include "ctl/history.h"

#include <algorithm>

#include "ctl/report.h"
#include "ctl/report_html.h"
#include "fuzz/input.h"
#include "history/history_files.h"
#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/disk/disk.h"

using namespace virtual_pc;

namespace {

void ExpectADaysHours(std::int64_t number, const ReportDay& day)
{
    for (const Stretch& stretch : day.stretches) {
        if (stretch.begin / kMsPerDay != number) Alarm("a stretch of time outside its day");
        if (stretch.length < 0 || stretch.length > kMsPerDay) Alarm("more than a day in a day");
    }
    for (const std::int64_t ms : day.ms) {
        if (ms < 0) Alarm("less than no time");
    }
}

int Read(std::size_t lines)
{
    const History history = ReadHistory();
    const auto torn = static_cast<std::size_t>(history.torn_lines);
    if (history.records.size() + torn > lines) Alarm("more lines than there are");
    const Report report = MakeReport(history, {}, 0, {});
    for (const auto& [number, day] : report.days) ExpectADaysHours(number, day);
    if (ReportHtml(report).empty()) Alarm("an empty page");
    return 0;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Machine pc;
    const std::string_view text = TextOf(data, size);
    pc.disk.Write(LR"(C:\ProgramData\Orbeq\Holv\History\03-02.jsonl)", std::string(text));
    const auto lines = 1 + static_cast<std::size_t>(std::ranges::count(text, '\n'));
    pc.RunUntilEnd(pc.Start([lines] { return Read(lines); }));
    for (const std::string& misuse : pc.misuses()) Alarm(misuse);
    return 0;
}
