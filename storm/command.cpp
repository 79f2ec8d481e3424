#include "storm/command.h"

#include <iostream>

#include "storm/schedules.h"

namespace {

// The conversion to a number would take a sign.
std::string RefuseSign(const std::string& text)
{
    if (!text.starts_with("-")) return {};
    return "\"" + Printable(text) + "\" is no number from 0 on";
}

}  // namespace

StormCommand::StormCommand(CLI::App& command, const PlayOptions& defaults) : m_command(command)
{
    m_options.play = defaults;
    m_options.gaps = HOLV_SOURCE_DIR "/storm/known_gaps.txt";
    m_command.add_option("--seed", m_options.seed, "The first life's seed; the others follow it")
        ->check(RefuseSign);
    m_command.add_option("--lives", m_options.lives, "How many lives")->check(CLI::PositiveNumber);
    m_command.add_option("--days", m_options.days, "The days of each life; drawn unless given")
        ->check(RefuseSign);
    m_command
        .add_option("--days-in-all", m_options.days_in_all,
                    "Lives go on until so many days are lived")
        ->check(RefuseSign);
    m_command.add_option("--jobs", m_options.jobs, "How many lives at a time")
        ->check(CLI::Range(1, 1024));
    m_command.add_option("--minutes", m_options.minutes, "No life begins after so many minutes")
        ->check(RefuseSign);
    m_command.add_option("--out", m_options.out, "Writes what was found to this file, for --merge");
    m_command.add_option("--keep", m_options.keep,
                         "Writes each finding's shrunk script into this folder");
    m_command.add_option("--known-gaps", m_options.gaps, "The file of known gaps; \"\" for none");
    m_command.add_option_function<int>(
        "--shrink", [this](int seconds) { m_options.shrinking = std::chrono::seconds{seconds}; },
        "Seconds for the shrinking of each finding; 40 unless given");
    m_command.add_flag("--details", m_options.details, "Prints every count");
    m_command.add_flag("--rare-is-red", m_options.rare_is_red,
                       "Exit status 1 where a rare situation was met fewer than ten times");
    m_command.add_flag("--free", m_options.play.machine.free, "Lets the PC's threads run at once");
    AddWays();
    AddSchedules();
}

void StormCommand::AddWays()
{
    m_life = m_command
                 .add_option("--life", m_options.seed,
                             "Lives this seed's life alone, and prints its script")
                 ->check(RefuseSign);
    m_command.add_option("--trace", m_options.play.trace,
                         "With --life: writes every effect here, as lines of JSON");
    m_command.add_flag("--gaps", m_gaps, "Plays the script of each known gap, which must show it");
    m_command.add_option("--watch", m_watched, "Plays scripts, and looks as at a life");
    m_command.add_option("--merge", m_merged, "Adds up what several storms wrote");
}

void StormCommand::AddSchedules()
{
    m_command.add_option("--schedules", m_scheduled,
                         "Plays scripts under every schedule with one departure from the fixed "
                         "order of the threads, from their first `say` on");
    m_command.add_flag("--two", m_two,
                       "With --schedules: with two departures, at the instant of that `say`");
    m_command
        .add_option("--every", m_every,
                    "With --schedules: only every so many-th, from one drawn by --seed")
        ->check(CLI::PositiveNumber);
    m_command.add_option_function<std::string>(
        "--depart",
        [this](const std::string& text) {
            try {
                m_options.play.machine.departures = DeparturesOf(text);
            } catch (const std::invalid_argument& error) {
                throw CLI::ValidationError("--depart", error.what());
            }
        },
        "With --watch: departs from the fixed order there, as POINT:CHOICE,...");
}

int StormCommand::RunScheduled() const
{
    ScheduleOptions options;
    options.jobs = m_options.jobs;
    options.two = m_two;
    options.every = m_every;
    options.seed = m_options.seed;
    options.play = m_options.play;
    return RunSchedules(options, m_scheduled, std::cout);
}

int StormCommand::Run()
{
    if (!m_scheduled.empty()) return RunScheduled();
    if (!m_merged.empty()) return Merge(m_options, m_merged, std::cout);
    if (!m_watched.empty()) return RunWatched(m_options, m_watched, std::cout);
    if (m_gaps) return RunGaps(m_options, std::cout);
    if (m_life->count() > 0) return RunLife(m_options, std::cout);
    return RunStorm(m_options, std::cout);
}
