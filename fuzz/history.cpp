// The history's file of a day, of any content, as "holvctl report" reads it: each line is taken or
// counted as torn, and each day that is told of has a day's hours.

#include "ctl/history.h"

#include <algorithm>

#include "ctl/report.h"
#include "ctl/report_html.h"
#include "fuzz/input.h"
#include "platform/virtual/core/machine.h"

namespace {

void ExpectADaysHours(std::int64_t number, const ReportDay& day)
{
    for (const Stretch& stretch : day.stretches) {
        if (stretch.begin / kMsPerDay != number) RingAlarm("a stretch of time outside its day");
        if (stretch.length < 0 || stretch.length > kMsPerDay) RingAlarm("more than a day in a day");
    }
    if (std::ranges::any_of(day.ms, [](std::int64_t ms) { return ms < 0; })) {
        RingAlarm("less than no time");
    }
}

int Read(std::string_view file)
{
    History history;
    AddLines(file, history);
    const auto read = history.records.size() + static_cast<std::size_t>(history.torn_lines);
    if (read > 1 + static_cast<std::size_t>(std::ranges::count(file, '\n'))) {
        RingAlarm("more lines than there are");
    }
    PutInOrder(history);
    const auto report = MakeReport(history, {}, 0, {});
    for (const auto& [number, day] : report.days) ExpectADaysHours(number, day);
    if (ReportHtml(report).empty()) RingAlarm("an empty page");
    return 0;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static virtual_pc::Machine pc;  // for its clock
    pc.RunUntilEnd(pc.Start([data, size] { return Read(TextOf(data, size)); }));
    return 0;
}
