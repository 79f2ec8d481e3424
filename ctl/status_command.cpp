#include "ctl/status_command.h"

#include <optional>

#include "ctl/published_state.h"
#include "ctl/request_holders.h"
#include "ctl/words.h"
#include "json/json_writer.h"
#include "power/machine_power.h"
#include "power/never_sleep_away_mode.h"

namespace {

// Of what `status --json` prints; docs/holvctl.md describes it.
constexpr int kSchemaVersion = 1;

ExitCode CodeOf(Published service)
{
    switch (service) {
        case Published::running:
        case Published::nothing:
            return kDone;
        case Published::not_installed:
            return kNotInstalled;
        default:
            return kNotRunning;
    }
}

// What only the system knows, and is asked when a person asks.
struct Present
{
    UtcTime utc = UtcNow();
    int minutes_ahead = MinutesAheadOfUtc();
    std::optional<int> battery;  // percent; nothing without one
    std::optional<std::vector<RequestHolder>> holders = ListRequestHolders();
};

Present ReadPresent()
{
    Present present;
    SYSTEM_POWER_STATUS status{};
    if (ReadPowerStatus(&status)) present.battery = KnownCharge();
    return present;
}

std::wstring DurationText(UtcTime duration)
{
    const auto minutes = static_cast<unsigned long long>(duration / kUnitsPerMinute);
    if (minutes < 60) return std::to_wstring(minutes) + L" min";
    return std::to_wstring(minutes / 60) + L" h " + std::to_wstring(minutes % 60) + L" min";
}

// --- As text ---

void AddRow(std::wstring& text, std::wstring_view name, std::wstring_view value)
{
    constexpr std::size_t kWidth = 11;
    std::wstring row(name);
    row.resize(kWidth, L' ');
    text += row + std::wstring(value) + L"\n";
}

void AddHolders(std::wstring& text, const Present& present)
{
    if (!present.holders) {
        return AddRow(text, L"Held by", L"not known: the system lists that to administrators");
    }
    for (const RequestHolder& holder : *present.holders) {
        if (holder.reason == kRequestReason) continue;
        AddRow(text, L"Held by",
               HolderName(holder.name) + L" (" + holder.kind + L", " + holder.request + L")" +
                   (holder.reason.empty() ? std::wstring() : L": " + holder.reason));
    }
}

std::wstring StateText(const PublishedState& state, const Present& present)
{
    const JsonValue& record = state.record;
    const auto since = record[L"since"].Time();
    if (state.service != Published::running || !since) return {};
    return record[L"state"].Text() + L" since " + LocalText(*since, present.minutes_ahead) + L" (" +
           DurationText(present.utc > *since ? present.utc - *since : 0) + L")\n";
}

std::wstring PowerText(const JsonValue& record, const Present& present)
{
    std::wstring text = record[L"power"][L"mains"].Flag() ? L"mains" : L"battery";
    if (present.battery) text += L", battery at " + std::to_wstring(*present.battery) + L" %";
    return text;
}

std::wstring PlanText(const JsonValue& record)
{
    const std::wstring user = PlanName(record[L"plan"][L"user"].Text());
    const std::wstring active = PlanName(record[L"plan"][L"active"].Text());
    if (user == active) return user + L", the user's";
    return active + L"; the user's is " + user;
}

std::wstring StatusText(const PublishedState& state, const Present& present)
{
    const JsonValue& record = state.record;
    std::wstring text = StateText(state, present) + WhySentence(state) + L"\n";
    if (state.service != Published::running) return text;
    for (const std::wstring& next : NextSentences(record)) AddRow(text, L"Next", next);
    AddRow(text, L"Requests", RequestsSentence(record));
    AddHolders(text, present);
    AddRow(text, L"Plan", PlanText(record));
    AddRow(text, L"Power", PowerText(record, present));
    AddRow(text, L"Hours", record[L"hours"][L"on"].Flag() ? HoursText(record) : L"switched off");
    if (const auto mutes = record[L"mutes"].Number(); mutes > 0) {
        AddRow(text, L"Mutes", std::to_wstring(mutes) + L" kept for the user");
    }
    if (const std::wstring corrected = CorrectionSentence(record); !corrected.empty()) {
        AddRow(text, L"Corrected", corrected);
    }
    return text;
}

// --- As JSON ---

JsonObject TimeObject(UtcTime time, int minutes_ahead)
{
    return JsonObject().Time(L"utc", time).Text(L"local", LocalText(time, minutes_ahead));
}

void AddTime(JsonObject& object, std::wstring_view name, const JsonValue& value, int minutes_ahead)
{
    if (const auto time = value.Time()) {
        object.Object(name, TimeObject(*time, minutes_ahead));
    } else {
        object.Null(name);
    }
}

std::wstring HoldersJson(const std::vector<RequestHolder>& holders)
{
    JsonArray array;
    for (const RequestHolder& holder : holders) {
        array.Add(JsonObject()
                      .Text(L"request", holder.request)
                      .Text(L"kind", holder.kind)
                      .Text(L"name", holder.name)
                      .Text(L"reason", holder.reason)
                      .Done());
    }
    return array.Done();
}

JsonObject PlanJson(const JsonValue& id)
{
    return JsonObject().Text(L"id", id.Text()).Text(L"name", PlanName(id.Text()));
}

void AddCorrection(JsonObject& json, const JsonValue& correction, int minutes_ahead)
{
    if (correction.IsNull()) {
        json.Null(L"correction");
        return;
    }
    JsonObject object;
    object.Text(L"rule", correction[L"rule"].Text());
    AddTime(object, L"at", correction[L"utc"], minutes_ahead);
    object.Text(L"wrong", correction[L"wrong"].Text());
    object.Text(L"remedy", correction[L"remedy"].Text());
    json.Object(L"correction", object);
}

void AddRecord(JsonObject& json, const JsonValue& record, const Present& present)
{
    const int ahead = present.minutes_ahead;
    json.Text(L"state", record[L"state"].Text());
    AddTime(json, L"since", record[L"since"], ahead);
    json.Text(L"reason", record[L"reason"].Text());
    JsonObject next;
    for (const wchar_t* timer : {L"idle_check", L"hours_begin", L"hours_end"}) {
        AddTime(next, timer, record[L"next"][timer], ahead);
    }
    const JsonValue& hours = record[L"hours"];
    const JsonValue& power = record[L"power"];
    JsonObject power_json;
    power_json.Flag(L"mains", power[L"mains"].Flag())
        .Flag(L"battery_low", power[L"battery_low"].Flag())
        .Flag(L"battery_allowed", power[L"battery_allowed"].Flag());
    json.Object(L"next", next)
        .Flag(L"feature", record[L"feature"].Flag())
        .Text(L"requests", record[L"requests"].Text())
        .Object(L"plan", JsonObject()
                             .Object(L"user", PlanJson(record[L"plan"][L"user"]))
                             .Object(L"active", PlanJson(record[L"plan"][L"active"])))
        .Object(L"power", power_json)
        .Object(L"hours", JsonObject()
                              .Flag(L"on", hours[L"on"].Flag())
                              .Number(L"start", hours[L"start"].Number())
                              .Number(L"end", hours[L"end"].Number())
                              .Flag(L"inside", hours[L"inside"].Flag())
                              .Flag(L"sleep", hours[L"sleep"].Flag()))
        .Number(L"mutes", record[L"mutes"].Number());
    AddCorrection(json, record[L"correction"], ahead);
}

std::wstring StatusJson(const PublishedState& state, const Present& present)
{
    JsonObject json;
    json.Number(L"schema", kSchemaVersion)
        .Text(L"service", PublishedName(state.service))
        .Object(L"now", TimeObject(present.utc, present.minutes_ahead))
        .Text(L"why", WhySentence(state));
    if (present.battery) {
        json.Number(L"battery", *present.battery);
    } else {
        json.Null(L"battery");
    }
    if (present.holders) {
        json.Raw(L"holders", HoldersJson(*present.holders));
    } else {
        json.Null(L"holders");
    }
    if (state.service == Published::running) AddRecord(json, state.record, present);
    return json.Done() + L"\n";
}

}  // namespace

int RunStatus(const CommandArguments& arguments)
{
    const bool json = arguments.size() == 1 && arguments[0] == L"--json";
    if (!arguments.empty() && !json) return kUsage;
    const PublishedState state = ReadPublishedState();
    const Present present = ReadPresent();
    Print(json ? StatusJson(state, present) : StatusText(state, present));
    return CodeOf(state.service);
}

int RunWhy(const CommandArguments& arguments)
{
    if (!arguments.empty()) return kUsage;
    const PublishedState state = ReadPublishedState();
    for (const std::wstring& reason : ReasonChain(state)) Print(reason + L"\n");
    if (state.service == Published::running) {
        const auto holders = ListRequestHolders();
        for (const RequestHolder& holder : holders.value_or(std::vector<RequestHolder>())) {
            if (holder.reason == kRequestReason) continue;
            Print(L"Another program holds a request: " + HolderName(holder.name) + L" (" +
                  holder.kind + L", " + holder.request + L").\n");
        }
    }
    return CodeOf(state.service);
}
