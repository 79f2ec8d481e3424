#include "storm/storm.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <stdexcept>

#include "pc/stop_signals.h"
#include "storm/child.h"
#include "storm/shrink.h"

using namespace std::chrono_literals;

namespace {

constexpr std::chrono::seconds kHangs{30};

double SecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

Outcome PlayWithPulse(const Life& life, const PlayPlan& plan, Pulse& pulse)
{
    PlayPlan own = plan;
    own.pulse = &pulse;
    return Play(life, own);
}

// The line of progress: rewritten on a terminal, now and then elsewhere.
class Progress
{
public:
    Progress(const StormOptions& options, const Tally& tally, std::ostream& out)
        : m_options(options),
          m_tally(tally),
          m_out(out),
          m_terminal(&out == &std::cout && isatty(STDOUT_FILENO))
    {
    }

    void Tick()
    {
        const double seconds = SecondsSince(m_start);
        const double apart = m_terminal ? 0.5 : 30;
        if (seconds - m_said < apart) return;
        m_said = seconds;
        m_out << (m_terminal ? "\r\033[K" : "") << m_tally.lives << " lives, " << std::fixed
              << std::setprecision(0) << m_tally.days << " days, " << m_tally.days / seconds
              << " days a second, " << m_tally.findings.size() << " findings, " << Left(seconds)
              << " s left" << (m_terminal ? "" : "\n") << std::flush;
    }
    void End()
    {
        if (m_terminal) m_out << "\r\033[K" << std::flush;
    }

private:
    // By the lives or the days that are still to be lived, and by the minutes.
    double Left(double seconds) const
    {
        const double part = m_options.days_in_all > 0 ? m_tally.days / m_options.days_in_all
                                                      : static_cast<double>(m_tally.lives) /
                                                            static_cast<double>(m_options.lives);
        const double by_work = part > 0 ? seconds * (1 - part) / part : 0;
        return m_options.minutes > 0 ? std::min(by_work, m_options.minutes * 60 - seconds)
                                     : by_work;
    }

    const StormOptions& m_options;
    const Tally& m_tally;
    std::ostream& m_out;
    const bool m_terminal;
    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    double m_said = 0;
};

Tally LiveAll(const StormOptions& options, const PlayPlan& plan, std::ostream& out)
{
    const auto start = std::chrono::steady_clock::now();
    Tally tally;
    Progress progress(options, tally, out);
    std::uint64_t begun = 0;
    Pool pool(options.jobs, kHangs);
    pool.Run(
        [&]() -> std::optional<Pool::Work> {
            const bool enough = options.days_in_all > 0 ? tally.days >= options.days_in_all
                                                        : begun == options.lives;
            if (enough || (options.minutes > 0 && SecondsSince(start) > options.minutes * 60))
                return std::nullopt;
            const std::uint64_t seed = options.seed + begun++;
            return [seed, &options, &plan](Pulse& pulse) {
                return ToJson(PlayWithPulse(DrawLife(seed, options.days), plan, pulse));
            };
        },
        [&](std::size_t number, const Ended& ended) {
            tally.Add(options.seed + number, options.days, OutcomeOf(ended));
        },
        [&] { progress.Tick(); });
    progress.End();
    tally.core_seconds = SecondsSince(start) * options.jobs;
    return tally;
}

// --- Scripts ---

// Names a script's file by what was promised.
std::string FileName(const Finding& finding, std::uint64_t seed)
{
    std::string name;
    for (const char letter : finding.Key().substr(0, 60)) {
        name += std::isalnum(static_cast<unsigned char>(letter)) ? letter : '_';
    }
    return name + "_" + std::to_string(seed) + ".pc";
}

// A life's commands, for one whose process did not live to tell them.
std::vector<std::string> CommandsOf(const Life& life)
{
    std::vector<std::string> commands;
    for (const Deed& deed : life.home)
        commands.insert(commands.end(), deed.lines.begin(), deed.lines.end());
    commands.insert(commands.end(), {"service install", "service start", "user works"});
    virtual_pc::Duration now{};
    for (const Deed& deed : life.deeds) {
        const auto wait = std::chrono::ceil<std::chrono::milliseconds>(deed.at - now);
        if (wait > 0ms) commands.push_back("run " + std::to_string(wait.count()) + "ms");
        now = std::max(now, deed.at);
        for (const std::string& line : deed.lines)
            commands.push_back(line == "}" || line[0] == 'm' ? line : "try " + line);
    }
    return commands;
}

std::vector<std::string> ScriptOf(const Life& life, const Outcome& outcome, const Finding& finding)
{
    std::vector<std::string> script = {
        "# " + finding.promise + ": " + finding.object + " should be " + finding.promised +
            ", but is " + finding.is,
        "# holvpc run --seed " + std::to_string(life.machine.seed) +
            (life.machine.priorities > 0
                 ? " --priorities " + std::to_string(life.machine.priorities)
                 : "") +
            " THIS_SCRIPT",
        "# deeds that are left: " + std::to_string(life.deeds.size()) +
            ", commands that set up the PC: " + std::to_string(life.home.size())};
    const auto commands = outcome.script.empty() ? CommandsOf(life) : outcome.script;
    script.insert(script.end(), commands.begin(), commands.end());
    const std::string expects = Expectation(finding);
    if (!expects.empty()) script.push_back(expects);
    return script;
}

void Write(const std::filesystem::path& file, const std::vector<std::string>& lines)
{
    std::ofstream stream(file);
    for (const std::string& line : lines) stream << line << "\n";
    if (!stream) throw std::runtime_error(file.string() + ": cannot be written");
}

void ShrinkAll(const StormOptions& options, const PlayPlan& plan, Tally& tally, std::ostream& out)
{
    int shrunk_so_far = 0;
    for (auto& [key, found] : tally.findings) {
        if (StopSignal() != 0 || shrunk_so_far++ == options.shrink_most) return;
        const Life life = DrawLife(found.seed, found.days);
        const Shrunk shrunk = Shrink(
            life, found.finding,
            [&](const Life& one, Pulse& pulse) { return PlayWithPulse(one, plan, pulse); },
            options.jobs, options.shrinking);
        if (!shrunk.outcome.finding) {
            out << "seed " << found.seed << " does not repeat its finding: " << key << "\n";
            continue;
        }
        found.script = ScriptOf(shrunk.life, shrunk.outcome, *shrunk.outcome.finding);
        if (!options.keep.empty())
            Write(options.keep / FileName(found.finding, found.seed), found.script);
    }
}

int Conclude(const StormOptions& options, const Tally& tally, std::ostream& out)
{
    Print(tally, options.details, out);
    if (!options.out.empty()) std::ofstream(options.out) << tally.Json() << "\n";
    const bool rare =
        std::ranges::any_of(tally.situations, [](const auto& met) { return met.second < 10; });
    return tally.findings.empty() && !(options.rare_is_red && rare) ? 0 : 1;
}

std::vector<Gap> GapsOf(const StormOptions& options)
{
    return options.gaps.empty() ? std::vector<Gap>{} : ReadGaps(options.gaps);
}

}  // namespace

int RunStorm(const StormOptions& options, std::ostream& out)
{
    const std::vector<Gap> gaps = GapsOf(options);
    const PlayPlan plan{options.play, gaps};
    if (!options.keep.empty()) create_directories(options.keep);
    out << "a storm of lives from seed " << options.seed << " on\n" << std::flush;
    Tally tally = LiveAll(options, plan, out);
    ShrinkAll(options, plan, tally, out);
    if (StopSignal() != 0) out << "stopped before its end\n";
    return Conclude(options, tally, out);
}

int RunLife(const StormOptions& options, std::ostream& out)
{
    const std::vector<Gap> gaps = GapsOf(options);
    const Life life = DrawLife(options.seed, options.days);
    out << "the life of seed " << options.seed << ": " << life.deeds.size()
        << " deeds of these kinds:";
    for (const std::string& kind : life.kinds) out << " " << kind << ";";
    const Outcome outcome = Play(life, PlayPlan{options.play, gaps});
    out << "\n";
    const Finding finding = outcome.finding.value_or(Finding{});
    for (const std::string& line : ScriptOf(life, outcome, finding)) out << line << "\n";
    Tally tally;
    tally.Add(options.seed, options.days, outcome);
    return Conclude(options, tally, out);
}

int RunGaps(const StormOptions& options, std::ostream& out)
{
    int passed = 0;
    for (const Gap& gap : GapsOf(options)) {
        if (StopSignal() != 0) return 1;
        std::vector<Gap> only = {gap};
        const Outcome outcome = PlayedAlone(kHangs, [&](Pulse& pulse) {
            return ToJson(
                PlayUnderWatch(ReadScript(gap.script), PlayPlan{options.play, only, &pulse}));
        });
        const bool shows = outcome.gaps.contains(gap.name);
        out << (shows ? "shown   " : "NOT SHOWN any more: strike it   ") << gap.name << "\n";
        if (outcome.finding) out << "        and found: " << outcome.finding->Key() << "\n";
        if (!shows) ++passed;
    }
    return passed > 0 ? 1 : 0;
}

int RunWatched(const StormOptions& options, const std::vector<std::filesystem::path>& scripts,
               std::ostream& out)
{
    const std::vector<Gap> gaps = GapsOf(options);
    std::vector<ScriptLine> lines;
    for (const auto& script : scripts) {
        for (ScriptLine& line : ReadScript(script)) lines.push_back(std::move(line));
    }
    Tally tally;
    tally.Add(options.play.machine.seed, 0, PlayUnderWatch(lines, PlayPlan{options.play, gaps}));
    return Conclude(options, tally, out);
}

int Merge(const StormOptions& options, const std::vector<std::filesystem::path>& files,
          std::ostream& out)
{
    Tally all;
    for (const auto& file : files) all.Add(Tally::Read(file));
    return Conclude(options, all, out);
}
