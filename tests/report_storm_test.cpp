// The hours that the report tells of random lives, against those that the machine itself has seen.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <utility>

#include "pc/report.h"
#include "storm/child.h"
#include "storm/life.h"
#include "storm/play.h"
#include "tests/seeds.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace virtual_pc;
using nlohmann::json;

namespace {

constexpr const char* kHistory = R"(C:\ProgramData\Orbeq\Holv\History\)";

// By date and state.
using Hours = std::map<std::pair<std::string, std::string>, Duration>;

// By the machine's time.
struct TracedLine
{
    Instant at;
    Duration clock;  // less `at`, as the line knows it
    std::string event;
    std::string boot;
    bool after_lost;  // lines that the disk has lost stand before it
};

// What the trace tells of the states, the clock, and the lines of the history that the disk has.
struct Traced
{
    std::map<Instant, std::string> states;  // since
    std::map<Instant, Duration> clocks;     // local time less `at`, since
    std::vector<TracedLine> lines;
};

std::set<std::string> LinesOnDisk(const fs::path& root)
{
    std::set<std::string> lines;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
        if (entry.path().extension() != ".jsonl") continue;
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line);) lines.insert(line);
    }
    return lines;
}

// The line's `tick` is the machine's time, too.
TracedLine LineOf(const json& record, bool after_lost)
{
    const Instant at = std::chrono::milliseconds{record["tick"].get<std::int64_t>()};
    std::string local = record["utc"].get<std::string>().substr(0, 19);
    local[10] = ' ';
    const int ms = std::stoi(record["utc"].get<std::string>().substr(20, 3));
    const Duration clock = *ParseCalendar(local) + std::chrono::milliseconds{ms} +
                           std::chrono::minutes{record["minutes_ahead"].get<int>()};
    return {at, clock - at, record["event"], record["boot"], after_lost};
}

// Not one of its program with a switch.
bool IsStartOfService(const json& effect)
{
    return effect["kind"] == "process" && effect["what"] == "started" &&
           effect["command_line"].get<std::string>().ends_with(R"(\HOLVService.exe")");
}

Traced ReadTraced(const fs::path& trace, const fs::path& root)
{
    const std::set<std::string> on_disk = LinesOnDisk(root);
    Traced traced;
    bool lost = false;
    std::ifstream file(trace);
    for (std::string text; std::getline(file, text);) {
        const json effect = json::parse(text);
        const Instant at{effect["at"].get<std::int64_t>()};
        const Duration clock =
            *ParseCalendar(effect["clock"].get<std::string>().substr(0, 19)) +
            std::chrono::milliseconds{std::stoi(effect["clock"].get<std::string>().substr(20))};
        if (traced.clocks.empty() || effect["kind"] == "clock") traced.clocks[at] = clock - at;
        if (effect["kind"] == "state") traced.states[at] = effect["to"];
        if (IsStartOfService(effect)) traced.states[at] = "HOLV_INIT";
        if (effect["kind"] != "write") continue;
        if (!effect["path"].get<std::string>().starts_with(kHistory)) continue;
        std::string line = effect["text"];
        if (line.size() < 2) continue;  // the end of a torn line
        line.pop_back();
        if (on_disk.contains(line)) {
            traced.lines.push_back(LineOf(json::parse(line), std::exchange(lost, false)));
        } else {
            lost = true;
        }
    }
    return traced;
}

void Book(Hours& hours, const std::string& state, Duration local, Duration length)
{
    while (length > 0s) {
        const Duration midnight = std::chrono::floor<std::chrono::days>(local) + 24h;
        const Duration part = std::min(length, midnight - local);
        hours[{FormatCalendar(local).substr(0, 10), state}] += part;
        local += part;
        length -= part;
    }
}

// The value from `at` on, and until when.
template <class T>
std::pair<T, Instant> Since(const std::map<Instant, T>& all, Instant at)
{
    const auto next = all.upper_bound(at);
    return {next == all.begin() ? T{} : std::prev(next)->second,
            next == all.end() ? kNever : next->first};
}

// The hours as they were; and how far those that can be told may be from them, where the clock was
// set and the service was not there to see it, or the disk has lost lines.
struct Truth
{
    Hours hours, allowance;
};

class Counting
{
public:
    explicit Counting(const Traced& traced) : m_traced(traced)
    {
        for (std::size_t i = 1; i < traced.lines.size(); ++i) {
            Take(traced.lines[i - 1], traced.lines[i]);
        }
    }

    Truth truth;

private:
    void Take(const TracedLine& from, const TracedLine& to)
    {
        const std::string instead = to.event != "start"    ? ""
                                    : from.event == "stop" ? "stopped"
                                                           : "unknown";
        Hours by_clock, as_known;
        for (Instant at = from.at; at < to.at;) {
            const auto [clock, clock_to] = Since(m_traced.clocks, at);
            const auto [state, state_to] = Since(m_traced.states, at);
            const Instant end = std::min({to.at, clock_to, state_to});
            const std::string& spent = instead.empty() ? state : instead;
            Book(by_clock, spent, at + clock, end - at);
            if (instead.empty()) Book(as_known, spent, at + from.clock, end - at);
            at = end;
        }
        // Between two starts of the PC only the clocks tell.
        if (!instead.empty()) {
            Duration length = to.at - from.at;
            if (from.boot != to.boot) length += to.clock - from.clock;
            Book(as_known, instead, from.at + from.clock, length);
        }
        for (const auto& [key, time] : by_clock) {
            truth.hours[key] += time;
            as_known[key] -= time;
            if (to.after_lost && to.event != "start") truth.allowance[key] += to.at - from.at;
        }
        for (const auto& [key, time] : as_known) truth.allowance[key] += std::chrono::abs(time);
    }

    const Traced& m_traced;
};

// What cannot be written cannot be told.
void LeaveOutWhatCannotBeTold(Life& life)
{
    std::erase_if(life.deeds, [](const Deed& deed) {
        return std::ranges::any_of(deed.lines, [](const std::string& line) {
            return line.starts_with("fault WriteFile");
        });
    });
}

PlayOptions OptionsOf(const fs::path& folder)
{
    return {.machine = {.root = folder / "pc"},
            .trace = folder / "trace.jsonl",
            .trace_only = {"state", "write", "clock", "process"},
            .image = HOLV_IMAGE,
            .resources = HOLV_SOURCE_DIR "/resources"};
}

// In a process of its own, as its threads are not this one's.
Outcome LiveIn(const fs::path& folder, const Life& life)
{
    const std::vector<Gap> gaps = ReadGaps(HOLV_SOURCE_DIR "/storm/known_gaps.txt");
    return PlayedAlone(60s, [&](Pulse& pulse) {
        return ToJson(Play(life, {OptionsOf(folder), gaps, &pulse}));
    });
}

json ReportOf(const fs::path& folder)
{
    std::ostringstream out, errors;
    EXPECT_EQ(ReportOfRun(OptionsOf(folder), {366, {}, true}, out, errors), 0) << errors.str();
    return json::parse(out.str());
}

void ExpectTheHoursOf(const Truth& truth, const json& report)
{
    Hours told = truth.hours;
    for (auto& [key, time] : told) time = 0s;
    for (const json& day : report["days"]) {
        for (const auto& [state, ms] : day["ms"].items()) {
            told[{day["date"], state}] = std::chrono::milliseconds{ms.get<std::int64_t>()};
        }
    }
    const auto of = [](const Hours& hours, const auto& key) {
        const auto found = hours.find(key);
        return found == hours.end() ? Duration{0} : found->second;
    };
    const auto seconds = [](Duration time) { return std::chrono::duration<double>(time).count(); };
    for (const auto& [key, time] : told) {
        const Duration really = of(truth.hours, key);
        EXPECT_LE(std::chrono::abs(time - really), 1s + of(truth.allowance, key))
            << key.first << " " << key.second << ": " << seconds(time) << " s told, "
            << seconds(really) << " s really";
    }
}

// What lives have shown, in all.
struct Seen
{
    std::map<std::string, int> deeds;  // that were done, of some kinds
    std::size_t lines = 0;             // of the history
    Duration time{0}, allowance{0};
};

void LookAtReportOf(std::uint64_t seed, Seen& seen)
{
    const fs::path folder =
        fs::temp_directory_path() / ("holv-report-storm-" + std::to_string(getpid()));
    fs::create_directories(folder);
    Life life = DrawLife(seed, 4);
    LeaveOutWhatCannotBeTold(life);
    life.machine.root = folder / "pc";
    for (const std::string& command : LiveIn(folder, life).script) {
        for (auto& [kind, count] : seen.deeds) count += command.starts_with(kind) ? 1 : 0;
    }
    const Traced traced = ReadTraced(folder / "trace.jsonl", folder / "pc");
    EXPECT_FALSE(traced.lines.empty());
    seen.lines += traced.lines.size();
    const Truth truth = Counting(traced).truth;
    ExpectTheHoursOf(truth, ReportOf(folder));
    for (const auto& [key, time] : truth.hours) seen.time += time;
    for (const auto& [key, time] : truth.allowance) seen.allowance += time;
    fs::remove_all(folder);
}

// Ten lives of which each has had its word in the report's making, and one of the day's.
TEST(ReportStormTest, TheHoursOfEachDayAreThoseOfThePcToTheSecond)
{
    std::vector<std::uint64_t> seeds = {12, 15, 32, 52, 60, 67, 82, 88, 95, 98};
    for (const Machine::Options& life : LivesOf({1})) seeds.push_back(life.seed);
    Seen seen{{{"service kill", 0},
               {"clock", 0},
               {"sleep", 0},
               {"power cut", 0},
               {"pc shutdown", 0},
               {"service stop", 0}}};
    for (const std::uint64_t seed : seeds) {
        SCOPED_TRACE("the life of seed " + std::to_string(seed) +
                     "; HOLV_SEEDS=N-N takes another as the last one");
        LookAtReportOf(seed, seen);
        if (HasFailure()) return;
    }
    for (const auto& [kind, count] : seen.deeds) EXPECT_GE(count, 1) << kind;
    EXPECT_GE(seen.lines, 10 * seeds.size());
    EXPECT_LT(seen.allowance * 20, seen.time);
}

}  // namespace
