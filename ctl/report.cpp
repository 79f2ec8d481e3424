#include "ctl/report.h"

#include <algorithm>
#include <iterator>

#include "ctl/report_log.h"
#include "ctl/words.h"
#include "log/format.h"

namespace {

const struct SpentRow
{
    const wchar_t* name;
    const wchar_t* title;
} kSpent[] = {
    {L"S0_NORMAL", L"normal use"},
    {L"HOLV_ACTIVE", L"kept awake"},
    {L"HOLV_IDLE", L"kept awake, idle"},
    {L"HOLV_DND", L"quiet hours"},
    {L"HOLV_S3", L"asleep"},
    {L"HOLV_INIT", L"switched off"},
    {L"stopped", L"service stopped"},
    {L"unknown", L"not known"},
};
static_assert(std::size(kSpent) == kSpentCount);

std::optional<int> ChargeOf(const HistoryRecord& record)
{
    const std::int64_t charge = record.line[L"charge"].Number(-1);
    return charge < 0 || charge > 100 ? std::nullopt : std::optional(static_cast<int>(charge));
}

// The local clock at a tick of the record's start of the PC, in milliseconds.
std::int64_t LocalAt(const HistoryRecord& record, std::int64_t tick)
{
    return static_cast<std::int64_t>(record.utc / kUnitsPerMs) +
           MinutesAhead(record.line) * 60'000LL + tick - record.tick;
}

bool IsEvent(const HistoryRecord& record, const wchar_t* event)
{
    return record.line[L"event"].Text() == event;
}

// The history goes back a year. Where its lines are further apart, a clock was wrong, and the days
// between have not been.
constexpr std::int64_t kLongestMs = 2LL * 366 * kMsPerDay;

// Calls `take` with each local day of the time, where its part begins, and how long it is.
template <class TakeDay>
void ForDays(Report& report, std::int64_t begin, std::int64_t length, const TakeDay& take)
{
    if (begin < 0 || length > kLongestMs) return;
    while (length > 0) {
        const std::int64_t part = std::min(length, kMsPerDay - begin % kMsPerDay);
        take(report.days[begin / kMsPerDay], begin, part);
        begin += part;
        length -= part;
    }
}

// Puts the stretches and events of each pair of records into the report.
class Maker
{
public:
    explicit Maker(Report& report) : m_report(report) {}

    // `next` is the line after `to`; null for none.
    void Take(const HistoryRecord& from, const HistoryRecord& to, const HistoryRecord* next)
    {
        const bool same_boot = from.boot == to.boot;
        const std::int64_t by_clock =
            static_cast<std::int64_t>(to.utc - from.utc) / static_cast<std::int64_t>(kUnitsPerMs);
        TakeCharge(from, ChargeOf(to), same_boot ? to.tick - from.tick : by_clock);
        if (!same_boot) return TakeRestart(from, to);
        if (IsEvent(to, L"start")) return TakeNewProcess(from, to);
        TakeStates(from, to, next);
        TakeClock(from, to);
        TakeUser(from, to, next);
        TakePlanAndMutes(from, to);
        TakeCorrection(from, to);
        for (const JsonValue& holder : from.line[L"holders"].Elements()) {
            ForDays(m_report, LocalAt(from, from.tick), to.tick - from.tick,
                    [&](ReportDay& day, std::int64_t, std::int64_t part) {
                        day.held_ms[HolderName(holder[L"name"].Text())] += part;
                    });
        }
    }

    // The stretch that has not ended.
    void TakeLast(const HistoryRecord& last, const ReportEnd& end)
    {
        if (IsEvent(last, L"stop") || end.utc <= last.utc) return;
        const auto length = static_cast<std::int64_t>((end.utc - last.utc) / kUnitsPerMs);
        TakeCharge(last, end.charge, length);
        Add(SpentIn(last.line[L"state"].Text()), last, last.tick, length);
    }

private:
    // The state of `from` goes on to the change, and that of `to` from there. Of several lines that
    // were written at once, each state ends where the next has begun. Clock and source are those of
    // the line before, until they tell others.
    void TakeStates(const HistoryRecord& from, const HistoryRecord& to, const HistoryRecord* next)
    {
        if (!m_before) {
            m_before = &from;
            m_told_to = from.tick;
        }
        const std::int64_t change = std::clamp(SinceOf(to), m_told_to, to.tick);
        const bool at_once =
            next && next->boot == to.boot && next->tick == to.tick && !IsEvent(*next, L"start");
        const std::int64_t end = at_once ? std::clamp(SinceOf(*next), change, to.tick) : to.tick;
        Add(SpentIn(from.line[L"state"].Text()), *m_before, m_told_to, change - m_told_to);
        Add(SpentIn(to.line[L"state"].Text()), *m_before, change, end - change);
        m_told_to = end;
        if (!at_once) m_before = nullptr;
    }

    static std::int64_t SinceOf(const HistoryRecord& record)
    {
        return record.line[L"since_tick"].Number();
    }

    void TakeNewProcess(const HistoryRecord& from, const HistoryRecord& to)
    {
        const bool stopped = IsEvent(from, L"stop");
        Add(stopped ? Spent::stopped : Spent::unknown, from, from.tick, to.tick - from.tick);
        if (!stopped) {
            Tell(to, L"gap",
                 L"the service was killed before this start; its last word is of " +
                     LocalText(from.utc, MinutesAhead(from.line)));
        }
    }

    // Between two starts of the PC only the clocks tell how long it took.
    void TakeRestart(const HistoryRecord& from, const HistoryRecord& to)
    {
        const bool stopped = IsEvent(from, L"stop");
        if (to.utc < from.utc) {
            return Tell(to, L"clock", L"the PC was started with a clock that was set back");
        }
        const auto length = static_cast<std::int64_t>((to.utc - from.utc) / kUnitsPerMs);
        if (length > kLongestMs) {
            return Tell(to, L"clock", L"the PC was started with a clock that was set forward");
        }
        Add(stopped ? Spent::stopped : Spent::unknown, from, from.tick, length);
        if (!stopped) {
            Tell(to, L"gap",
                 L"the PC went off without a word before this start; the last one is of " +
                     LocalText(from.utc, MinutesAhead(from.line)));
        }
    }

    void TakeClock(const HistoryRecord& from, const HistoryRecord& to)
    {
        constexpr std::int64_t kMostMs = 1000;
        const std::int64_t set = LocalAt(to, to.tick) - LocalAt(from, to.tick);
        if (set <= kMostMs && set >= -kMostMs) return;
        Tell(to, L"clock",
             std::wstring(L"the clock was set ") + (set > 0 ? L"forward" : L"back") + L" by " +
                 std::to_wstring((set > 0 ? set : -set) / 1000) + L" s");
    }

    // Windows tells of each wake that something has woken the PC, and of one by the user that right
    // after it.
    void TakeUser(const HistoryRecord& from, const HistoryRecord& to, const HistoryRecord* next)
    {
        constexpr std::int64_t kRightAfterMs = 2000;
        const auto present = [](const HistoryRecord& record) {
            return record.line[L"user"][L"present"].Flag();
        };
        const bool before = from.line[L"user"][L"suspended"].Flag();
        const bool now = to.line[L"user"][L"suspended"].Flag();
        if (!before && now) Tell(to, L"sleep", L"the PC went to sleep: " + SleepCause(from));
        if (before && !now) {
            const bool soon =
                next && next->boot == to.boot && next->tick - to.tick <= kRightAfterMs;
            Tell(to, L"wake",
                 present(to) || (soon && present(*next)) ? L"the user woke the PC"
                                                         : L"a timer or a device woke the PC");
        }
    }

    static std::wstring SleepCause(const HistoryRecord& from)
    {
        if (from.line[L"requests"].Text() == L"held") return L"it was asked to";
        const std::wstring reason = ReleaseReason(from.line);
        return reason.empty() ? L"nothing kept it awake" : reason;
    }

    void TakePlanAndMutes(const HistoryRecord& from, const HistoryRecord& to)
    {
        const std::wstring& plan = to.line[L"plan"][L"active"].Text();
        const std::wstring& before = from.line[L"plan"][L"active"].Text();
        if (before != plan && !before.empty()) {
            Tell(to, L"plan", L"the active plan is " + PlanName(plan));
        }
        const std::int64_t mutes = to.line[L"mutes"].Number();
        if (from.line[L"mutes"].Number() != mutes) {
            Tell(to, L"mute",
                 mutes == 0 ? L"what was muted sounds again"
                            : L"muted while the user is away: " + std::to_wstring(mutes));
        }
    }

    void TakeCorrection(const HistoryRecord& from, const HistoryRecord& to)
    {
        const JsonValue& now = to.line[L"correction"];
        if (now.IsNull() || from.line[L"correction"][L"utc"].Text() == now[L"utc"].Text()) return;
        Tell(to, L"correction", now[L"wrong"].Text() + L": " + now[L"remedy"].Text());
    }

    // A charge that has fallen was used, day by day in equal measure.
    void TakeCharge(const HistoryRecord& from, std::optional<int> to, std::int64_t length)
    {
        const std::optional<int> before = ChargeOf(from);
        if (!before || !to) return;
        const std::int64_t begin = LocalAt(from, from.tick);
        length = std::max<std::int64_t>(length, 1);
        const std::int64_t used = std::max(*before - *to, 0);
        std::int64_t passed = 0, counted = 0;
        ForDays(m_report, begin, length, [&](ReportDay& day, std::int64_t, std::int64_t part) {
            passed += part;
            const std::int64_t till_then = used * passed / length;
            day.charge_used += static_cast<int>(till_then - counted);
            counted = till_then;
            const int lowest = *before - static_cast<int>(till_then);
            day.lowest_charge = std::min(day.lowest_charge.value_or(lowest), lowest);
        });
    }

    void Tell(const HistoryRecord& record, const wchar_t* kind, std::wstring text)
    {
        m_report.events.push_back({record.utc, MinutesAhead(record.line), kind, std::move(text)});
    }

    void Add(Spent spent, const HistoryRecord& clock, std::int64_t tick, std::int64_t length)
    {
        const bool battery = !clock.line[L"power"][L"mains"].Flag() && spent <= Spent::off;
        AddStretch(m_report, spent, LocalAt(clock, tick), length, battery);
    }

    Report& m_report;
    // While lines follow that were written at once: the line before them, and the tick up to which
    // states are told.
    const HistoryRecord* m_before = nullptr;
    std::int64_t m_told_to = 0;
};

// A plan that is activated for an instant between two states is no news: leaves the last of the
// instant, and that only where it differs from the plan before.
void JoinPlans(std::vector<ReportedEvent>& events)
{
    constexpr std::wstring_view kPlan = L"plan";
    const auto is_plan = [&](const ReportedEvent& event) { return event.kind == kPlan; };
    std::vector<ReportedEvent> joined;
    for (ReportedEvent& event : events) {
        if (is_plan(event)) {
            std::erase_if(joined, [&](const ReportedEvent& other) {
                return is_plan(other) && other.utc == event.utc;
            });
            const auto last = std::find_if(joined.rbegin(), joined.rend(), is_plan);
            if (last != joined.rend() && last->text == event.text) continue;
        }
        joined.push_back(std::move(event));
    }
    events = std::move(joined);
}

// Leaves the last days, counted from the last one.
void LeaveDays(Report& report, int days)
{
    if (days <= 0 || report.days.empty()) return;
    const std::int64_t first = report.days.rbegin()->first - days + 1;
    report.days.erase(report.days.begin(), report.days.lower_bound(first));
    std::erase_if(report.events, [&](const ReportedEvent& event) {
        const auto local =
            static_cast<std::int64_t>(event.utc / kUnitsPerMs) + event.minutes_ahead * 60'000LL;
        return local / kMsPerDay < first;
    });
}

}  // namespace

const wchar_t* SpentName(Spent spent) { return kSpent[static_cast<int>(spent)].name; }
const wchar_t* SpentTitle(Spent spent) { return kSpent[static_cast<int>(spent)].title; }

Spent SpentIn(std::wstring_view state)
{
    const auto row =
        std::ranges::find_if(kSpent, [&](const SpentRow& known) { return state == known.name; });
    return row == std::end(kSpent) ? Spent::unknown : static_cast<Spent>(row - kSpent);
}

void AddStretch(Report& report, Spent spent, std::int64_t begin, std::int64_t length,
                bool on_battery)
{
    ForDays(report, begin, length, [&](ReportDay& day, std::int64_t from, std::int64_t part) {
        day.ms[static_cast<std::size_t>(spent)] += part;
        if (on_battery) day.on_battery_ms += part;
        Stretch* const last = day.stretches.empty() ? nullptr : &day.stretches.back();
        if (last && last->spent == spent && last->begin + last->length == from) {
            last->length += part;
        } else {
            day.stretches.push_back({spent, from, part});
        }
    });
}

Report MakeReport(const History& history, const ServiceEvents& log, int days, const ReportEnd& end)
{
    Report report;
    report.records = history.records.size();
    report.torn_lines = history.torn_lines;
    const std::vector<HistoryRecord>& records = history.records;
    TellBeforeHistory(report, history, log, end.utc);
    Maker maker(report);
    for (std::size_t i = 1; i < records.size(); ++i) {
        maker.Take(records[i - 1], records[i], i + 1 < records.size() ? &records[i + 1] : nullptr);
    }
    if (!records.empty()) maker.TakeLast(records.back(), end);
    JoinPlans(report.events);
    TellErrors(report, history, log);
    LeaveDays(report, days);
    return report;
}

std::wstring DayText(std::int64_t day)
{
    const LocalTime date = ToLocal(static_cast<UtcTime>(day) * kUnitsPerDay, 0);
    wchar_t text[16];
    FormatText(text, L"%04d-%02d-%02d", date.year, date.month, date.day);
    return text;
}
