#include "ctl/report_command.h"

#include <optional>

#include "ctl/published_state.h"
#include "ctl/report_html.h"
#include "ctl/words.h"
#include "json/json_writer.h"
#include "platform/file.h"
#include "platform/owned.h"

namespace {

// Of what `report --json` prints; docs/holvctl.md describes it.
constexpr int kSchemaVersion = 1;

struct ReportOptions
{
    int days = 7;
    bool json = false;
    std::wstring html;  // a file's path; empty for none
};

std::optional<ReportOptions> OptionsIn(const CommandArguments& arguments)
{
    constexpr long kMostDays = 366;
    ReportOptions options;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const bool has_value = i + 1 < arguments.size();
        if (arguments[i] == L"--json") {
            options.json = true;
        } else if (arguments[i] == L"--html" && has_value) {
            options.html = arguments[++i];
        } else if (arguments[i] == L"--days" && has_value) {
            const long days = NumberIn(arguments[++i]);
            if (days < 1 || days > kMostDays) return std::nullopt;
            options.days = static_cast<int>(days);
        } else {
            return std::nullopt;
        }
    }
    return options;
}

std::wstring ReportText(const Report& report)
{
    if (report.days.empty()) return L"The history is empty.\n";
    std::wstring text = L"Hours by the local clock\n";
    for (const auto& [number, day] : report.days) {
        text += DayText(number);
        for (int spent = 0; spent < kSpentCount; ++spent) {
            const std::int64_t ms = day.ms[static_cast<std::size_t>(spent)];
            if (ms > 0) {
                text += std::wstring(L"  ") + SpentTitle(static_cast<Spent>(spent)) + L" " +
                        HoursText(ms);
            }
        }
        if (day.on_battery_ms > 0) text += L"  (on battery " + HoursText(day.on_battery_ms) + L")";
        text += L"\n";
    }
    for (const auto& [name, ms] : HoldersOf(report)) {
        text += L"Held awake by " + name + L" for " + HoursText(ms) + L"\n";
    }
    for (const ReportedEvent& event : report.events) {
        text += LocalText(event.utc, event.minutes_ahead) + L"  " + event.text + L"\n";
    }
    if (report.torn_lines > 0) {
        text += std::to_wstring(report.torn_lines) + L" line(s) of the history cannot be read\n";
    }
    return text;
}

std::wstring DaysJson(const Report& report)
{
    JsonArray days;
    for (const auto& [number, day] : report.days) {
        JsonObject ms;
        for (int spent = 0; spent < kSpentCount; ++spent) {
            ms.Number(SpentName(static_cast<Spent>(spent)),
                      day.ms[static_cast<std::size_t>(spent)]);
        }
        days.Add(JsonObject()
                     .Text(L"date", DayText(number))
                     .Object(L"ms", ms)
                     .Number(L"on_battery_ms", day.on_battery_ms)
                     .Done());
    }
    return days.Done();
}

std::wstring ReportJson(const Report& report)
{
    JsonArray holders;
    for (const auto& [name, ms] : HoldersOf(report)) {
        holders.Add(JsonObject().Text(L"name", name).Number(L"ms", ms).Done());
    }
    JsonArray events;
    for (const ReportedEvent& event : report.events) {
        events.Add(JsonObject()
                       .Time(L"utc", event.utc)
                       .Text(L"local", LocalText(event.utc, event.minutes_ahead))
                       .Text(L"kind", event.kind)
                       .Text(L"text", event.text)
                       .Done());
    }
    return JsonObject()
               .Number(L"schema", kSchemaVersion)
               .Raw(L"days", DaysJson(report))
               .Raw(L"holders", holders.Done())
               .Raw(L"events", events.Done())
               .Number(L"records", static_cast<std::int64_t>(report.records))
               .Number(L"torn_lines", report.torn_lines)
               .Done() +
           L"\n";
}

bool WriteText(const std::wstring& path, const std::wstring& text)
{
    const OwnedFile file(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                     CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return false;
    const std::string bytes = ToUtf8Bytes(text);
    DWORD written = 0;
    return WriteFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written,
                     nullptr) &&
           written == bytes.size();
}

}  // namespace

int RunReport(const CommandArguments& arguments)
{
    const auto options = OptionsIn(arguments);
    if (!options) return kUsage;
    const bool runs = ReadPublishedState().service == Published::running;
    const Report report = MakeReport(ReadHistory(), options->days, runs ? UtcNow() : 0);
    if (!options->html.empty()) {
        if (!WriteText(options->html, ReportHtml(report))) {
            return EndWith(kFailed, options->html + L" cannot be written: error " +
                                        std::to_wstring(GetLastError()) + L".");
        }
        if (!options->json) return EndWith(kDone, L"The report is in " + options->html + L".");
    }
    Print(options->json ? ReportJson(report) : ReportText(report));
    return kDone;
}
