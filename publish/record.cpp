#include "publish/record.h"

#include "log/format.h"
#include "publish/published_key.h"

namespace {

constexpr const wchar_t* kRequestNames[] = {L"released", L"partly", L"held"};

UtcTime UtcOf(const RecordHead& head, std::uint64_t tick)
{
    const auto ahead = static_cast<std::int64_t>(tick - head.tick);
    return head.utc + static_cast<UtcTime>(ahead * static_cast<std::int64_t>(kUnitsPerMs));
}

// A service that has not entered a state yet is in its first since it began.
UtcTime SinceOf(const RecordHead& head, const Snapshot& now)
{
    return now.since == 0 ? head.process_started : UtcOf(head, now.since);
}

void AddHead(JsonObject& record, const RecordHead& head)
{
    // The time stands first: the history's writer looks for it there.
    record.Time(L"utc", head.utc)
        .Number(L"version", kPublishedVersion)
        .Number(L"minutes_ahead", head.minutes_ahead)
        .Text(L"boot", head.boot)
        .Number(L"number", static_cast<std::int64_t>(head.number))
        .Number(L"tick", static_cast<std::int64_t>(head.tick))
        .Object(L"process",
                JsonObject().Number(L"id", head.process_id).Time(L"started", head.process_started));
}

std::wstring TextOf(const GUID& plan)
{
    if (IsEqualGUID(plan, GUID{})) return {};
    wchar_t text[40];
    FormatText(text, L"%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x", plan.Data1, plan.Data2,
               plan.Data3, plan.Data4[0], plan.Data4[1], plan.Data4[2], plan.Data4[3],
               plan.Data4[4], plan.Data4[5], plan.Data4[6], plan.Data4[7]);
    return text;
}

void AddHolders(JsonObject& record, const ListedHolders& holders)
{
    JsonArray array;
    for (const RequestHolder& holder : holders ? *holders : std::vector<RequestHolder>()) {
        array.Add(JsonObject()
                      .Text(L"request", holder.request)
                      .Text(L"kind", holder.kind)
                      .Text(L"name", holder.name)
                      .Done());
    }
    record.Raw(L"holders", array.Done());
}

void AddCorrection(JsonObject& record, const RecordHead& head, const Correction& correction)
{
    if (!correction.rule) return;
    record.Object(L"correction", JsonObject()
                                     .Text(L"rule", correction.rule->name)
                                     .Time(L"utc", UtcOf(head, correction.at))
                                     .Text(L"wrong", correction.rule->wrong)
                                     .Text(L"remedy", correction.rule->remedy));
}

}  // namespace

JsonObject FactsOf(const Snapshot& now)
{
    JsonObject facts;
    facts.Flag(L"feature", now.feature_on)
        .Object(L"user", JsonObject()
                             .Flag(L"present", now.user_present)
                             .Flag(L"away", now.away)
                             .Flag(L"suspended", now.suspended))
        .Object(L"power", JsonObject()
                              .Flag(L"mains", now.on_ac)
                              .Flag(L"battery_low", now.battery_low)
                              .Flag(L"battery_allowed", now.battery_allowed))
        .Text(L"requests", kRequestNames[static_cast<int>(now.requests)])
        .Object(L"hours", JsonObject()
                              .Flag(L"on", now.hours_enabled)
                              .Number(L"start", now.hours_start)
                              .Number(L"end", now.hours_end)
                              .Flag(L"inside", now.in_hours)
                              .Flag(L"sleep", now.sleeps_in_hours))
        .Object(L"plan", JsonObject()
                             .Text(L"user", TextOf(now.plans.user))
                             .Text(L"active", TextOf(now.plans.active)))
        .Number(L"mutes", now.kept_mutes);
    return facts;
}

std::wstring HistoryRecord(const RecordHead& head, const Snapshot& now, const JsonObject& facts,
                           RecordEvent event, std::optional<int> charge)
{
    constexpr const wchar_t* kEventNames[] = {L"start", L"change", L"stop"};
    JsonObject record;
    AddHead(record, head);
    record.Text(L"event", kEventNames[static_cast<int>(event)])
        .Text(L"state", StateName(now.state))
        .Time(L"since", SinceOf(head, now))
        .Number(L"since_tick", static_cast<std::int64_t>(now.since))
        .Text(L"reason", ReasonName(now.reason));
    record.Members(facts);
    if (charge) record.Number(L"charge", *charge);
    AddHolders(record, now.holders);
    AddCorrection(record, head, now.correction);
    return record.Done();
}

std::wstring PublishedRecord(const RecordHead& head, const Snapshot& now, const JsonObject& facts,
                             const NextTimers& next, bool running)
{
    JsonObject record;
    AddHead(record, head);
    record.Flag(L"running", running)
        .Text(L"state", StateName(now.state))
        .Time(L"since", SinceOf(head, now))
        .Text(L"reason", ReasonName(now.reason));
    if (const wchar_t* rule = RuleBehind(now.reason)) record.Text(L"rule", rule);
    record.Members(facts);
    JsonObject timers;
    const auto add = [&](const wchar_t* name, const std::optional<ULONGLONG>& due) {
        if (due) timers.Time(name, UtcOf(head, *due));
    };
    add(L"idle_check", next.idle_check);
    add(L"hours_begin", next.hours_begin);
    add(L"hours_end", next.hours_end);
    record.Object(L"next", timers);
    AddCorrection(record, head, now.correction);
    return record.Done();
}
