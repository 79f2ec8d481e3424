#include "ctl/report_command.h"

#include <optional>

#include "ctl/published_state.h"
#include "ctl/report_html.h"
#include "ctl/report_log.h"
#include "ctl/words.h"
#include "json/json_writer.h"
#include "platform/file.h"
#include "platform/owned.h"
#include "power/machine_power.h"

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

// What the day has used of the battery, in parentheses; "" for nothing.
std::wstring BatteryText(const ReportDay& day)
{
    if (day.on_battery_ms == 0 && day.charge_used == 0) return {};
    std::wstring text = L"  (on battery " + HoursText(day.on_battery_ms);
    if (day.lowest_charge) {
        text += L", " + std::to_wstring(day.charge_used) + L" % of the charge used, down to " +
                std::to_wstring(*day.lowest_charge) + L" %";
    }
    return text + L")";
}

std::wstring DaysText(const Report& report)
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
        text += BatteryText(day);
        if (day.before_history) text += L"  (from the event log)";
        text += L"\n";
    }
    return text;
}

std::wstring ReportText(const Report& report)
{
    std::wstring text = DaysText(report);
    for (const auto& [name, ms] : HoldersOf(report)) {
        text += L"Held awake by " + name + L" for " + HoursText(ms) + L"\n";
    }
    for (const ReportedEvent& event : report.events) {
        text += LocalText(event.utc, event.minutes_ahead) + L"  " + event.text + L"\n";
    }
    for (const std::wstring& note : SourceNotes(report)) text += note + L"\n";
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
        JsonObject json;
        json.Text(L"date", DayText(number))
            .Text(L"source", day.before_history ? L"event_log" : L"history")
            .Object(L"ms", ms)
            .Number(L"on_battery_ms", day.on_battery_ms)
            .Number(L"charge_used", day.charge_used);
        if (day.lowest_charge) {
            json.Number(L"lowest_charge", *day.lowest_charge);
        } else {
            json.Null(L"lowest_charge");
        }
        days.Add(json.Done());
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
    JsonObject json;
    json.Number(L"schema", kSchemaVersion);
    if (report.history_begin) {
        const auto& [utc, ahead] = *report.history_begin;
        json.Object(L"history_begin",
                    JsonObject().Time(L"utc", utc).Text(L"local", LocalText(utc, ahead)));
    } else {
        json.Null(L"history_begin");
    }
    return json.Raw(L"days", DaysJson(report))
               .Raw(L"holders", holders.Done())
               .Raw(L"events", events.Done())
               .Number(L"records", static_cast<std::int64_t>(report.records))
               .Number(L"torn_lines", report.torn_lines)
               .Object(L"event_log",
                       JsonObject()
                           .Number(L"records", static_cast<std::int64_t>(report.service_events))
                           .Number(L"error", report.log_error))
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

ReportEnd EndOfReport()
{
    ReportEnd end;
    if (ReadPublishedState().service != Published::running) return end;
    end.utc = UtcNow();
    SYSTEM_POWER_STATUS status{};
    if (ReadPowerStatus(&status)) end.charge = KnownCharge();
    return end;
}

}  // namespace

int RunReport(const CommandArguments& arguments)
{
    const auto options = OptionsIn(arguments);
    if (!options) return kUsage;
    const Report report =
        MakeReport(ReadHistory(), ReadServiceEvents(), options->days, EndOfReport());
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
