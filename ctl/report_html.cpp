#include "ctl/report_html.h"

#include <algorithm>
#include <iterator>

#include "ctl/report_log.h"
#include "ctl/words.h"
#include "log/format.h"

namespace {

// The colours and the heights differ, so that the timeline reads without colours, too.
constexpr const wchar_t* kHead =
    LR"(<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>What this PC did</title>
<style>
:root{color-scheme:light dark;--ink:#1c2430;--dim:#5b6675;--paper:#fff;--line:#d8dde4;
--c0:#8fc7a4;--c1:#e0762f;--c2:#f0b26b;--c3:#6d63c4;--c4:#31435c;--c5:#b9c0ca;--c6:#dfe3e8;--c7:#c94f6d}
@media(prefers-color-scheme:dark){:root{--ink:#e6eaf0;--dim:#9aa6b5;--paper:#161b22;--line:#333c48;
--c0:#3f8a5c;--c1:#e8833f;--c2:#b98343;--c3:#8d84e6;--c4:#8aa6cc;--c5:#59626e;--c6:#2b323b;--c7:#e0708c}}
*{box-sizing:border-box}
body{font:15px/1.45 system-ui,"Segoe UI",sans-serif;color:var(--ink);background:var(--paper);
max-width:1100px;margin:0 auto;padding:1.5rem}
h1{font-size:1.5rem;margin:0 0 .2rem}h2{font-size:1.1rem;margin:2rem 0 .5rem}
p{margin:.3rem 0;color:var(--dim)}
.legend{display:flex;flex-wrap:wrap;gap:.3rem 1.1rem;margin:1rem 0 .4rem;padding:0;list-style:none}
.legend svg{width:1.1em;height:1em;vertical-align:-.15em;margin-right:.35em}
svg.t{display:block;width:100%;min-width:760px;height:auto;margin-bottom:.6rem}svg text{fill:var(--dim);font-size:20px}
.s0{fill:var(--c0)}.s1{fill:var(--c1)}.s2{fill:var(--c2)}.s3{fill:var(--c3)}.s4{fill:var(--c4)}
.s5{fill:var(--c5)}.s6{fill:var(--c6)}.s7{fill:var(--c7)}.g{stroke:var(--line);stroke-width:1}
.wide{overflow-x:auto}
table{border-collapse:collapse;width:100%;font-variant-numeric:tabular-nums}
th,td{padding:.25rem .6rem;text-align:right;white-space:nowrap;vertical-align:bottom;border-bottom:1px solid var(--line)}
th{color:var(--dim);font-weight:600;white-space:normal}th:first-child,td:first-child{text-align:left}
td.w{text-align:left;white-space:normal;overflow-wrap:anywhere;width:99%}td.k{text-align:left}.e td{vertical-align:top}
@media(max-width:640px){body{padding:.8rem}th,td{padding:.25rem .35rem}.e td{white-space:normal}.e td:first-child{min-width:7.2em}}
@media print{:root{color-scheme:light;--ink:#000;--dim:#444;--paper:#fff;--line:#bbb;--c0:#8fc7a4;
--c1:#e0762f;--c2:#f0b26b;--c3:#6d63c4;--c4:#31435c;--c5:#b9c0ca;--c6:#dfe3e8;--c7:#c94f6d}
body{max-width:none;padding:0;font-size:11px}.wide{overflow:visible}svg.t{min-width:0}
*{-webkit-print-color-adjust:exact;print-color-adjust:exact}tr,svg{break-inside:avoid}}
</style></head><body>
)";

// Of the timeline, in its own units: one for a minute.
constexpr int kLeft = 140;
constexpr int kWidth = 1440;
constexpr int kRow = 34;
constexpr int kTop = 30;

// How high each way of spending time is drawn, in its row.
constexpr int kHeights[kSpentCount] = {12, 24, 18, 24, 6, 12, 4, 16};

std::wstring Escape(std::wstring_view text)
{
    std::wstring escaped;
    for (const wchar_t character : text) {
        switch (character) {
            case L'&':
                escaped += L"&amp;";
                break;
            case L'<':
                escaped += L"&lt;";
                break;
            case L'>':
                escaped += L"&gt;";
                break;
            default:
                escaped += character;
        }
    }
    return escaped;
}

std::wstring Number(std::int64_t number) { return std::to_wstring(number); }

std::wstring Bar(int from, int to, int top, int height)
{
    return L"M" + Number(from) + L" " + Number(top) + L"h" + Number(to - from) + L"v" +
           Number(height) + L"h-" + Number(to - from) + L"z";
}

// A day's row: one path for each way of spending time, in whole minutes, so that a year is small.
void AddDay(std::wstring& html, std::int64_t number, const ReportDay& day, int top)
{
    constexpr std::int64_t kMsPerMinute = 60'000;
    html += L"<text x=\"0\" y=\"" + Number(top + 28) + L"\">" + DayText(number) + L"</text>";
    for (int spent = 0; spent < kSpentCount; ++spent) {
        const int height = kHeights[spent];
        std::wstring path;
        int drawn_to = 0;
        for (const Stretch& stretch : day.stretches) {
            if (static_cast<int>(stretch.spent) != spent) continue;
            const std::int64_t begin = stretch.begin % kMsPerDay;
            const int from = std::max(drawn_to, static_cast<int>(begin / kMsPerMinute));
            const int to =
                static_cast<int>((begin + stretch.length + kMsPerMinute - 1) / kMsPerMinute);
            if (to <= from) continue;
            path += Bar(kLeft + from, kLeft + to, top + kRow - 3 - height, height);
            drawn_to = to;
        }
        if (path.empty()) continue;
        html += L"<path class=\"s" + Number(spent) + L"\" d=\"" + path + L"\"><title>" +
                SpentTitle(static_cast<Spent>(spent)) + L", " +
                HoursText(day.ms[static_cast<std::size_t>(spent)]) + L"</title></path>";
    }
    html += L"\n";
}

using Day = decltype(Report::days)::const_iterator;

void AddPicture(std::wstring& html, Day day, Day end)
{
    const int height = kTop + kRow * static_cast<int>(std::distance(day, end));
    html += L"<svg class=\"t\" role=\"img\" aria-label=\"Timeline, a row a day\" viewBox=\"0 0 " +
            Number(kLeft + kWidth + 20) + L" " + Number(height + 4) + L"\">\n";
    constexpr int kHoursApart = 3;
    for (int hour = 0; hour <= 24; hour += kHoursApart) {
        const int x = kLeft + hour * 60;
        html += L"<path class=\"g\" d=\"M" + Number(x) + L" " + Number(kTop - 6) + L"V" +
                Number(height) + L"\"/><text text-anchor=\"middle\" x=\"" + Number(x) +
                L"\" y=\"16\">" + Number(hour) + L"</text>";
    }
    html += L"\n";
    for (int top = kTop; day != end; ++day, top += kRow) AddDay(html, day->first, day->second, top);
    html += L"</svg>\n";
}

// A picture a month, with its own hours: on paper none is cut by the end of a page, and on a screen
// the hours stay near.
void AddTimeline(std::wstring& html, const Report& report)
{
    html += L"<div class=\"wide\">\n";
    for (Day begin = report.days.begin(); begin != report.days.end();) {
        const std::wstring month = DayText(begin->first).substr(0, 7);
        const Day end = std::find_if(begin, report.days.end(), [&month](const auto& day) {
            return !DayText(day.first).starts_with(month);
        });
        AddPicture(html, begin, end);
        begin = end;
    }
    html += L"</div>\n";
}

std::array<bool, kSpentCount> SpentAtAll(const Report& report)
{
    std::array<bool, kSpentCount> used{};
    for (const auto& [number, day] : report.days) {
        for (std::size_t i = 0; i < used.size(); ++i) used[i] = used[i] || day.ms[i] > 0;
    }
    return used;
}

void AddLegend(std::wstring& html, const Report& report)
{
    const auto used = SpentAtAll(report);
    html += L"<ul class=\"legend\">";
    for (int spent = 0; spent < kSpentCount; ++spent) {
        if (!used[static_cast<std::size_t>(spent)]) continue;
        const int height = kHeights[spent];
        html += L"<li><svg viewBox=\"0 0 26 24\"><path class=\"s" + Number(spent) + L"\" d=\"" +
                Bar(0, 26, 24 - height, height) + L"\"/></svg>" +
                SpentTitle(static_cast<Spent>(spent)) + L"</li>";
    }
    html += L"</ul>\n";
}

std::wstring ChargeText(int percent) { return percent > 0 ? Number(percent) + L" %" : L"-"; }

void AddHours(std::wstring& html, const Report& report)
{
    const auto used = SpentAtAll(report);
    const bool battery = std::ranges::any_of(
        report.days, [](const auto& day) { return day.second.lowest_charge.has_value(); });
    html += L"<h2>Hours a day</h2>\n<div class=\"wide\"><table><tr><th>day</th>";
    for (std::size_t i = 0; i < used.size(); ++i) {
        if (used[i]) html += L"<th>" + std::wstring(SpentTitle(static_cast<Spent>(i))) + L"</th>";
    }
    html += L"<th>on battery</th>";
    if (battery) html += L"<th>charge used</th><th>lowest charge</th>";
    html += L"</tr>\n";
    for (const auto& [number, day] : report.days) {
        html += L"<tr><td>" + DayText(number) +
                (day.before_history ? L", from the event log</td>" : L"</td>");
        for (std::size_t i = 0; i < used.size(); ++i) {
            if (used[i]) html += L"<td>" + HoursText(day.ms[i]) + L"</td>";
        }
        html += L"<td>" + HoursText(day.on_battery_ms) + L"</td>";
        if (battery) {
            html += L"<td>" + ChargeText(day.charge_used) + L"</td><td>" +
                    ChargeText(day.lowest_charge.value_or(0)) + L"</td>";
        }
        html += L"</tr>\n";
    }
    html += L"</table></div>\n";
}

void AddHolders(std::wstring& html, const Report& report)
{
    const auto holders = HoldersOf(report);
    if (holders.empty()) return;
    html +=
        L"<h2>Other programs that held the PC awake</h2>\n"
        L"<p>As far as the listings tell that the service makes.</p>\n<table>";
    for (const auto& [name, ms] : holders) {
        html +=
            L"<tr><td class=\"w\">" + Escape(name) + L"</td><td>" + HoursText(ms) + L"</td></tr>\n";
    }
    html += L"</table>\n";
}

void AddEvents(std::wstring& html, const Report& report)
{
    constexpr std::size_t kMost = 2000;
    const std::size_t left_out = report.events.size() > kMost ? report.events.size() - kMost : 0;
    html += L"<h2>What happened</h2>\n";
    if (left_out > 0)
        html += L"<p>The first " + Number(static_cast<std::int64_t>(left_out)) +
                L" are left out.</p>\n";
    html += L"<table class=\"e\">";
    for (std::size_t i = left_out; i < report.events.size(); ++i) {
        const ReportedEvent& event = report.events[i];
        html += L"<tr><td>" + LocalText(event.utc, event.minutes_ahead) + L"</td><td class=\"k\">" +
                event.kind + L"</td><td class=\"w\">" + Escape(event.text) + L"</td></tr>\n";
    }
    html += L"</table>\n";
}

}  // namespace

std::wstring HoursText(std::int64_t ms)
{
    constexpr std::int64_t kMsPerMinute = 60'000;
    if (ms <= 0) return L"-";
    const std::int64_t minutes = (ms + kMsPerMinute / 2) / kMsPerMinute;
    wchar_t text[32];
    FormatText(text, L"%lld:%02lld", static_cast<long long>(minutes / 60),
               static_cast<long long>(minutes % 60));
    return text;
}

std::vector<std::pair<std::wstring, std::int64_t>> HoldersOf(const Report& report)
{
    std::map<std::wstring, std::int64_t> held;
    for (const auto& [number, day] : report.days) {
        for (const auto& [name, ms] : day.held_ms) held[name] += ms;
    }
    std::vector<std::pair<std::wstring, std::int64_t>> holders(held.begin(), held.end());
    std::ranges::stable_sort(holders,
                             [](const auto& a, const auto& b) { return a.second > b.second; });
    return holders;
}

std::wstring ReportHtml(const Report& report)
{
    std::wstring html = kHead;
    html += L"<h1>What this PC did</h1>\n";
    if (report.days.empty()) {
        html += L"<p>The history is empty.</p>\n";
    } else {
        html += L"<p>" + DayText(report.days.begin()->first) + L" to " +
                DayText(report.days.rbegin()->first) + L", by the local clock; " +
                Number(static_cast<std::int64_t>(report.days.size())) +
                (report.days.size() == 1 ? L" day.</p>\n" : L" days.</p>\n");
    }
    for (const std::wstring& note : SourceNotes(report)) html += L"<p>" + note + L"</p>\n";
    if (!report.days.empty()) {
        AddLegend(html, report);
        AddTimeline(html, report);
        AddHours(html, report);
        AddHolders(html, report);
    }
    if (!report.events.empty()) AddEvents(html, report);
    return html + L"</body></html>\n";
}
