#include "ctl/report_log.h"

#include <algorithm>
#include <iterator>

#include "ctl/words.h"

namespace {

constexpr UtcTime kUnitsPerLogTick = 1000 * kUnitsPerMs;  // the log's times are whole seconds

std::int64_t LocalMs(UtcTime utc, int minutes_ahead)
{
    return static_cast<std::int64_t>(utc / kUnitsPerMs) + minutes_ahead * 60'000LL;
}

std::optional<Spent> ChangeIn(const ServiceEvent& event)
{
    constexpr std::wstring_view kUpdate = L"State update ", kTo = L" >>----->> ";
    const std::wstring_view message = event.message;
    if (message == L"Setting Holv State to disabled") return Spent::off;
    const std::size_t to = message.find(kTo);
    if (!message.starts_with(kUpdate) || to == message.npos) return std::nullopt;
    const std::wstring_view state = message.substr(to + kTo.size());
    return SpentIn(state.substr(0, state.find(L' ')));
}

// A process of the service begins with the state machine's start, and ends with a control.
bool IsStart(const ServiceEvent& event)
{
    return event.function == L"CNeverSleepState::InitializeState" &&
           event.message.starts_with(L"This system is");
}
bool IsStop(const ServiceEvent& event)
{
    return event.message == L"SERVICE_CONTROL_STOP" || event.message == L"SERVICE_CONTROL_SHUTDOWN";
}

// Other processes report under the same source, and a process reports before it is the service.
bool IsOfStateMachine(const ServiceEvent& event)
{
    return event.function.starts_with(L"CNeverSleepState::") || IsStop(event) || ChangeIn(event);
}

constexpr std::pair<std::wstring_view, std::pair<const wchar_t*, const wchar_t*>> kSleeps[] = {
    {L"*****System is Suspending*****", {L"sleep", L"the PC went to sleep"}},
    {L"*****System is Resuming [attended]*****", {L"wake", L"the user woke the PC"}},
    {L"*****System is Resuming [unattended]*****", {L"wake", L"a timer or a device woke the PC"}},
};

// Goes through the events, and tells what lies between each two.
class PastTeller
{
public:
    PastTeller(Report& report, int minutes_ahead) : m_report(report), m_ahead(minutes_ahead) {}

    void Take(const ServiceEvent& event)
    {
        if (IsStart(event)) {
            Begin(event.utc);
        } else if (IsOfStateMachine(event)) {
            Reach(event.utc, m_spent);
        } else {
            return;
        }
        if (IsStop(event)) m_spent = Spent::stopped;
        if (const auto change = ChangeIn(event); change && m_spent != Spent::stopped) {
            m_spent = change;
        }
        for (const auto& [message, told] : kSleeps) {
            if (event.message == message) Tell(event.utc, told.first, told.second);
        }
    }

    // The process that begins was not there before.
    void Begin(UtcTime utc)
    {
        const bool killed = m_spent && m_spent != Spent::stopped;
        if (killed) {
            Tell(utc, L"gap",
                 L"the service had not ended before this start; its last word is of " +
                     LocalText(m_last, m_ahead));
        }
        Reach(utc, killed ? Spent::unknown : m_spent);
        m_spent = Spent::off;
    }

    void End(UtcTime utc) { Reach(utc, m_spent); }

private:
    void Reach(UtcTime utc, std::optional<Spent> spent)
    {
        if (utc < m_last) Tell(utc, L"clock", L"the clock was set back");
        if (spent && utc > m_last) {
            const std::int64_t begin = LocalMs(m_last, m_ahead);
            AddStretch(m_report, *spent, begin, LocalMs(utc, m_ahead) - begin, false);
        }
        m_last = utc;
    }

    void Tell(UtcTime utc, const wchar_t* kind, std::wstring text)
    {
        m_report.events.push_back({utc, m_ahead, kind, std::move(text)});
    }

    Report& m_report;
    int m_ahead;
    std::optional<Spent> m_spent;  // nothing until an event has told
    UtcTime m_last = 0;
};

// The process with which the history begins reports its start right after that.
bool IsOfHistory(const ServiceEvent& event, const HistoryRecord& first)
{
    return event.utc > first.utc || (event.utc + kUnitsPerLogTick > first.utc && IsStart(event));
}

// Puts the events of `more` before the first that is later.
void MergeByTime(std::vector<ReportedEvent>& events, std::vector<ReportedEvent> more)
{
    std::vector<ReportedEvent> merged;
    auto next = more.begin();
    for (ReportedEvent& event : events) {
        for (; next != more.end() && next->utc < event.utc; ++next) {
            merged.push_back(std::move(*next));
        }
        merged.push_back(std::move(event));
    }
    std::move(next, more.end(), std::back_inserter(merged));
    events = std::move(merged);
}

bool BeginsBefore(const Report& report, const std::pair<UtcTime, int>& time)
{
    const auto local = LocalMs(time.first, time.second);
    return std::ranges::any_of(report.days, [&](const auto& day) {
        const std::vector<Stretch>& stretches = day.second.stretches;
        return !stretches.empty() && stretches.front().begin < local &&
               day.first <= local / kMsPerDay;
    });
}

}  // namespace

void TellBeforeHistory(Report& report, const History& history, const ServiceEvents& log,
                       UtcTime now)
{
    const HistoryRecord* const first = history.records.empty() ? nullptr : &history.records.front();
    if (first) report.history_begin = {first->utc, MinutesAhead(first->line)};
    report.service_events = log.events.size();
    report.log_error = log.error;
    PastTeller teller(report, first ? MinutesAhead(first->line) : MinutesAheadOfUtc());
    for (const ServiceEvent& event : log.events) {
        if (first && IsOfHistory(event, *first)) break;
        teller.Take(event);
    }
    if (first && first->line[L"event"].Text() == L"start") {
        teller.Begin(first->utc);
    } else if (first || now > 0) {
        teller.End(first ? first->utc : now);
    }
    for (auto& [number, day] : report.days) {
        day.before_history =
            !first || (number + 1) * kMsPerDay <= LocalMs(first->utc, MinutesAhead(first->line));
    }
}

void TellErrors(Report& report, const History& history, const ServiceEvents& log)
{
    std::vector<ReportedEvent> errors;
    std::map<std::pair<std::int64_t, std::wstring>, std::pair<std::size_t, int>> told;
    auto record = history.records.begin();
    int ahead = record == history.records.end() ? MinutesAheadOfUtc() : MinutesAhead(record->line);
    for (const ServiceEvent& event : log.events) {
        if (event.type != EVENTLOG_ERROR_TYPE) continue;
        for (; record != history.records.end() && record->utc <= event.utc; ++record) {
            ahead = MinutesAhead(record->line);
        }
        const std::int64_t day = LocalMs(event.utc, ahead) / kMsPerDay;
        std::wstring text =
            L"the service reported an error: " + event.message + L" (" + event.function + L")";
        auto [place, fresh] = told.try_emplace({day, text}, errors.size(), 0);
        ++place->second.second;
        if (fresh) errors.push_back({event.utc, ahead, L"error", std::move(text)});
    }
    for (const auto& [error, times] : told) {
        const auto& [index, count] = times;
        if (count > 1) {
            errors[index].text += L", " + std::to_wstring(count) + L" times on that day";
        }
    }
    MergeByTime(report.events, std::move(errors));
}

std::vector<std::wstring> SourceNotes(const Report& report)
{
    std::vector<std::wstring> notes;
    if (report.log_error) {
        notes.push_back(L"The event log cannot be read (error " +
                        std::to_wstring(report.log_error) +
                        L"): the service's errors are not told, nor what was before the history.");
    }
    if (!report.history_begin && !report.days.empty()) {
        notes.emplace_back(L"There is no history: all of this is from the event log alone.");
    } else if (report.history_begin && BeginsBefore(report, *report.history_begin)) {
        const auto& [utc, ahead] = *report.history_begin;
        notes.push_back(L"The history begins at " + LocalText(utc, ahead) +
                        L": what was before is from the event log alone.");
    }
    if (report.torn_lines > 0) {
        notes.push_back(std::to_wstring(report.torn_lines) +
                        L" line(s) of the history cannot be read.");
    }
    return notes;
}
