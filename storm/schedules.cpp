#include "storm/schedules.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>

#include "pc/stop_signals.h"
#include "storm/child.h"

using namespace std::chrono_literals;
using virtual_pc::Scheduler;

namespace {

using Departures = std::vector<Scheduler::Departure>;

constexpr std::chrono::seconds kStands{30};

std::string TextOfDepartures(const Departures& departures)
{
    std::string text;
    for (const Scheduler::Departure& departure : departures) {
        text += (text.empty() ? "" : ",") + std::to_string(departure.point) + ":" +
                std::to_string(departure.choice);
    }
    return text;
}

// The schedules of one script, each of them played in a process of its own.
class Schedules
{
public:
    Schedules(const ScheduleOptions& options, std::vector<ScriptLine> script)
        : m_options(options), m_script(std::move(script))
    {
    }

    void PlayAll();
    void Print(std::ostream& out, const std::filesystem::path& script) const;
    bool found() const { return !m_found.empty(); }

private:
    std::vector<Outcome> Outcomes(const std::vector<Departures>& schedules);
    // Adds each schedule that departs once more, at one of the points.
    static void Extend(const Departures& so_far, const Outcome& outcome, std::size_t from,
                       std::size_t to, std::vector<Departures>& schedules);
    std::vector<Departures> Sampled(const std::vector<Departures>& all) const;
    void Count(const Departures& schedule, const Outcome& outcome);

    const ScheduleOptions& m_options;
    const std::vector<ScriptLine> m_script;
    const std::vector<Gap> m_no_gaps;
    std::size_t m_points = 0;
    std::size_t m_of = 0;
    std::size_t m_played = 0;
    struct Found
    {
        Finding finding;
        Departures first;  // the schedule that had it first
        std::size_t schedules = 0;
    };
    std::map<std::string, Found> m_found;  // by the finding's key
};

std::vector<Outcome> Schedules::Outcomes(const std::vector<Departures>& schedules)
{
    std::vector<Outcome> outcomes(schedules.size());
    std::size_t next = 0;
    Pool(m_options.jobs, kStands)
        .Run(
            [&]() -> std::optional<Pool::Work> {
                if (next == schedules.size() || StopSignal() != 0) return std::nullopt;
                const Departures& schedule = schedules[next++];
                return [&schedule, this](Pulse& pulse) {
                    PlayPlan plan{m_options.play, m_no_gaps, &pulse};
                    plan.options.machine.seed = 0;
                    plan.options.machine.departures = schedule;
                    return ToJson(PlayUnderWatch(m_script, plan));
                };
            },
            [&](std::size_t number, const Ended& ended) { outcomes[number] = OutcomeOf(ended); });
    for (std::size_t i = 0; i < next && StopSignal() == 0; ++i) Count(schedules[i], outcomes[i]);
    return outcomes;
}

void Schedules::Count(const Departures& schedule, const Outcome& outcome)
{
    ++m_played;
    if (!outcome.finding) return;
    const Found found{*outcome.finding, schedule};
    ++m_found.try_emplace(outcome.finding->Key(), found).first->second.schedules;
}

void Schedules::Extend(const Departures& so_far, const Outcome& outcome, std::size_t from,
                       std::size_t to, std::vector<Departures>& schedules)
{
    for (std::size_t point = from; point < std::min(to, outcome.points.size()); ++point) {
        for (std::size_t choice = 0; choice < outcome.points[point]; ++choice) {
            schedules.push_back(so_far);
            schedules.back().push_back({point, choice});
        }
    }
}

std::vector<Departures> Schedules::Sampled(const std::vector<Departures>& all) const
{
    std::vector<Departures> sampled;
    for (std::size_t i = m_options.seed % m_options.every; i < all.size(); i += m_options.every) {
        sampled.push_back(all[i]);
    }
    return sampled;
}

void Schedules::PlayAll()
{
    const Outcome fixed = Outcomes({{}}).front();
    m_points = m_options.two ? fixed.points_at_once : fixed.points.size();
    std::vector<Departures> once;
    Extend({}, fixed, 0, m_points, once);
    if (!m_options.two) {
        m_of = once.size();
        Outcomes(Sampled(once));
        return;
    }
    // What a first departure leads to decides where a second can be.
    std::vector<Departures> twice;
    const std::vector<Outcome> after = Outcomes(once);
    for (std::size_t i = 0; i < once.size() && StopSignal() == 0; ++i) {
        Extend(once[i], after[i], once[i].back().point + 1, after[i].points_at_once, twice);
    }
    m_of = once.size() + twice.size();
    Outcomes(Sampled(twice));
}

void Schedules::Print(std::ostream& out, const std::filesystem::path& script) const
{
    out << script.stem().string() << ": " << m_points << " places, " << m_of << " schedules, "
        << m_played << " played\n";
    for (const auto& [key, found] : m_found) {
        const Finding& finding = found.finding;
        out << "finding, in " << found.schedules << " schedules: " << finding.promise << "\n  "
            << finding.object << " should be " << finding.promised << ", but is " << finding.is
            << ", at " << finding.clock << "\n  repeat: holvpc storm --watch " << script.string();
        if (!found.first.empty()) out << " --depart " << TextOfDepartures(found.first);
        out << "\n";
    }
    out << std::flush;
}

}  // namespace

int RunSchedules(const ScheduleOptions& options, const std::vector<std::filesystem::path>& scripts,
                 std::ostream& out)
{
    bool found = false;
    for (const auto& script : scripts) {
        if (StopSignal() != 0) break;
        Schedules schedules(options, ReadScript(script));
        schedules.PlayAll();
        schedules.Print(out, script);
        found = found || schedules.found();
    }
    if (StopSignal() != 0) out << "stopped before its end\n";
    return found || StopSignal() != 0 ? 1 : 0;
}

Departures DeparturesOf(const std::string& text)
{
    Departures departures;
    std::istringstream stream(text);
    Scheduler::Departure departure{};
    for (char colon = 0, comma = ','; comma == ',';) {
        if (!(stream >> departure.point >> colon >> departure.choice) || colon != ':')
            throw std::invalid_argument("\"" + text + "\" is no list as 17:0,23:1");
        departures.push_back(departure);
        if (!(stream >> comma)) break;
        if (comma != ',') throw std::invalid_argument("\"" + text + "\" is no list as 17:0,23:1");
    }
    return departures;
}
