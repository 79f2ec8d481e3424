#include "publish/record.h"

#include "publish/published_key.h"

namespace {

// A record is built in one piece of memory: few have more characters.
constexpr std::size_t kUsualLength = 2000;

constexpr const wchar_t* kRequestNames[] = {L"released", L"partly", L"held"};

UtcTime UtcOf(const RecordHead& head, std::uint64_t tick)
{
    const auto ahead = static_cast<std::int64_t>(tick - head.tick);
    return head.utc + static_cast<UtcTime>(ahead * static_cast<std::int64_t>(kUnitsPerMs));
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
        .Object(L"process", head.process);
}

// Without braces; empty for none. A record has two plans, and is made for each change: no format is
// parsed for them.
std::wstring TextOf(const GUID& plan)
{
    if (IsEqualGUID(plan, GUID{})) return {};
    std::wstring text = L"00000000-0000-0000-0000-000000000000";
    const auto put = [&](std::size_t at, std::size_t digits, std::uint32_t number) {
        for (; digits > 0; number >>= 4) text[at + --digits] = L"0123456789abcdef"[number & 0xF];
    };
    put(0, 8, plan.Data1);
    put(9, 4, plan.Data2);
    put(14, 4, plan.Data3);
    for (std::size_t i = 0; i < 2; ++i) put(19 + 2 * i, 2, plan.Data4[i]);
    for (std::size_t i = 2; i < 8; ++i) put(20 + 2 * i, 2, plan.Data4[i]);
    return text;
}

void AddHolders(JsonObject& record, const ListedHolders& holders)
{
    JsonArray array;
    static const std::vector<RequestHolder> kNone;
    for (const RequestHolder& holder : holders ? *holders : kNone) {
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

JsonObject ProcessRecord(DWORD id, UtcTime started)
{
    return JsonObject().Number(L"id", id).Time(L"started", started);
}

JsonObject FactsOf(const Snapshot& now)
{
    JsonObject facts(kUsualLength);
    facts.Flag(L"feature", now.feature_on)
        .Begin(L"user")
        .Flag(L"present", now.user_present)
        .Flag(L"away", now.away)
        .Flag(L"suspended", now.suspended)
        .End()
        .Begin(L"power")
        .Flag(L"mains", now.on_ac)
        .Flag(L"battery_low", now.battery_low)
        .Flag(L"battery_allowed", now.battery_allowed)
        .End()
        .Text(L"requests", kRequestNames[static_cast<int>(now.requests)])
        .Begin(L"hours")
        .Flag(L"on", now.hours_enabled)
        .Number(L"start", now.hours_start)
        .Number(L"end", now.hours_end)
        .Flag(L"inside", now.in_hours)
        .Flag(L"sleep", now.sleeps_in_hours)
        .End()
        .Begin(L"plan")
        .Text(L"user", TextOf(now.plans.user))
        .Text(L"active", TextOf(now.plans.active))
        .End()
        .Number(L"mutes", now.kept_mutes);
    return facts;
}

JsonObject CommonRecord(const RecordHead& head, const Snapshot& now, const JsonObject& facts)
{
    JsonObject record(kUsualLength);
    AddHead(record, head);
    record.Text(L"state", StateName(now.state))
        .Time(L"since", UtcOf(head, now.since))
        .Text(L"reason", ReasonName(now.reason))
        .Members(facts);
    AddCorrection(record, head, now.correction);
    return record;
}

std::wstring HistoryRecord(JsonObject common, const Snapshot& now, RecordEvent event,
                           std::optional<int> charge)
{
    constexpr const wchar_t* kEventNames[] = {L"start", L"change", L"stop"};
    common.Text(L"event", kEventNames[static_cast<int>(event)])
        .Number(L"since_tick", static_cast<std::int64_t>(now.since));
    if (charge) common.Number(L"charge", *charge);
    AddHolders(common, now.holders);
    return std::move(common).Done();
}

std::wstring PublishedRecord(JsonObject common, const RecordHead& head, const Snapshot& now,
                             const NextTimers& next, bool running)
{
    common.Flag(L"running", running);
    if (const wchar_t* rule = RuleBehind(now.reason)) common.Text(L"rule", rule);
    common.Begin(L"next");
    const auto add = [&](const wchar_t* name, const std::optional<ULONGLONG>& due) {
        if (due) common.Time(name, UtcOf(head, *due));
    };
    add(L"idle_check", next.idle_check);
    add(L"hours_begin", next.hours_begin);
    add(L"hours_end", next.hours_end);
    common.End();
    return std::move(common).Done();
}
