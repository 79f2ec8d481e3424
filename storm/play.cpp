#include "storm/play.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <limits>
#include <ostream>
#include <set>
#include <streambuf>

#include "pc/commands.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/power/sleep.h"
#include "platform/virtual/services/service_manager.h"
#include "storm/promised/promised.h"
#include "storm/situations.h"

using namespace virtual_pc;
using namespace std::chrono_literals;

namespace {

// Before a deed, and while nothing is done: how long after the last deed the PC is looked at.
constexpr std::array<Duration, 4> kLooks = {16s, 61s, 301s, 3601s};

// A life's end: every fault off, one leave and return, and a stop.
const std::vector<std::string> kEnd = {"fault clear",
                                       "slow clear",
                                       "notices clear",
                                       "requests take 0ms",
                                       "device fails 0",
                                       "pc boot",
                                       "wake user",
                                       "user works",
                                       "plan free",
                                       "program releases display Film.exe",
                                       "program releases system Film.exe",
                                       "program releases away Film.exe",
                                       "session logon alice",
                                       "session unlock",
                                       "service start",
                                       "run 3m",
                                       "user leaves",
                                       "sleep",
                                       "run 3m",
                                       "wake user",
                                       "user works",
                                       "run 3m",
                                       "client quit",
                                       "service stop",
                                       "run 1m"};

// Takes every character, and keeps none.
class Nowhere : public std::streambuf
{
    int_type overflow(int_type letter) override { return traits_type::not_eof(letter); }
    std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

std::ostream& OutNowhere()
{
    static Nowhere nowhere;
    static std::ostream out(&nowhere);
    return out;
}

// Whether the command cannot be done now: programs do nothing on a PC that sleeps, and only the
// power supply is left of one that is off.
bool Impossible(Machine& pc, const std::string& command)
{
    static const std::vector<std::string> kNeedPrograms = {
        "client", "ctl",           "service",      "plan",         "reg",          "program",
        "driver", "pc shutdown",   "session",      "audio mute",   "audio unmute", "audio volume",
        "clock",  "audio default", "audio enable", "audio disable"};
    static const std::vector<std::string> kNeedNoPower = {
        "pc boot", "power ac", "power battery", "fault",
        "slow",    "notices",  "requests",      "device fails"};
    const auto begins = [&](const std::string& with) { return command.starts_with(with); };
    if (!pc.on()) return !command.starts_with("run") && std::ranges::none_of(kNeedNoPower, begins);
    const Hold hold(pc);
    return pc.sleep.phase() != SleepState::Phase::awake &&
           std::ranges::any_of(kNeedPrograms, begins);
}

// The machine's first words about where it is stuck; the threads' follow.
Finding StuckFinding(const StuckMachine& stuck)
{
    std::string why = stuck.what();
    why = why.substr(0, why.find('\n'));
    Finding finding;
    finding.promise = "the PC goes on";
    finding.object = "the machine";
    finding.is = why;
    return finding;
}

class Playing
{
public:
    explicit Playing(const PlayPlan& plan, const Machine::Options& machine);

    void Home(const std::vector<Deed>& home);
    void Live(const Life& life);
    void End();
    // A line of a script. False when there is a finding.
    bool Line(const ScriptLine& line);
    // The end of a script, before what every life ends with.
    void Settle() { m_player.pc().scheduler.CountPoints(false); }
    bool found() const { return m_outcome.finding.has_value(); }
    Outcome Result();

private:
    Instant Now() { return m_player.pc().now(); }
    // Plays a command. False when the PC refuses it.
    bool Do(const std::string& command);
    void Keep(const std::string& command, bool refused, bool had_effect);
    void RunTo(Instant when);
    void RunFor(Duration span);
    void Look(const std::vector<Broken>& broken);
    void Note(const Broken& broken);
    void Quiet();
    void LookForMisuse();
    void Found(const std::string& promise, const std::string& object, const std::string& is);

    const PlayPlan& m_plan;
    Losses m_losses;
    Player m_player;
    Situations m_situations;
    std::optional<Promised> m_promised;
    std::vector<Done> m_done;
    std::set<DWORD> m_ended_slowly;  // processes
    std::atomic<std::uint64_t> m_effects = 0;
    Instant m_started{};
    Instant m_last_deed{};
    Outcome m_outcome;
};

PlayOptions On(const PlayOptions& options, const Machine::Options& machine)
{
    PlayOptions on = options;
    on.machine = machine;
    on.machine.free = options.machine.free;
    return on;
}

Playing::Playing(const PlayPlan& plan, const Machine::Options& machine)
    : m_plan(plan),
      m_player(On(plan.options, machine), OutNowhere(), m_losses),
      m_situations(m_player.pc())
{
    const auto hear = [this](const Effect& effect) {
        ++m_effects;
        // Where a call takes longer than a stop waits, a thread keeps what it has until the end.
        if (effect.kind == "process" && effect.Text("what") == L"ended" &&
            m_player.pc().slowness.any()) {
            m_ended_slowly.insert(static_cast<DWORD>(effect.Number("id")));
        }
        if (m_plan.pulse) m_plan.pulse->store(effect.at.count(), std::memory_order_relaxed);
    };
    m_player.pc().journal.Listen(hear, IsOfThePc);
}

void Playing::Keep(const std::string& command, bool refused, bool had_effect)
{
    if (!refused) {
        m_outcome.script.push_back(command);
    } else if (had_effect) {
        m_outcome.script.push_back("try " + command);
    }
}

bool Playing::Do(const std::string& command)
{
    if (Impossible(m_player.pc(), command)) return false;
    const ScriptLine line = ReadLine(command, {}, static_cast<int>(m_outcome.script.size()) + 1);
    const std::uint64_t effects = m_effects;
    const Instant before = Now();
    bool refused = false;
    if (m_promised) m_promised->Deed(line);
    try {
        m_player.Play(line);
    } catch (const ExpectationFailed&) {
        refused = true;
    }
    Keep(command, refused, m_effects != effects || Now() != before);
    if (refused) return false;
    m_done.emplace_back(before, command);
    m_situations.Deed(command);
    ++m_outcome.deeds;
    return true;
}

void Playing::Home(const std::vector<Deed>& home)
{
    for (const Deed& deed : home) {
        for (const std::string& line : deed.lines) Do(line);
    }
    m_promised.emplace(m_player.pc());
    for (const char* const line : {"service install", "service start", "user works"}) Do(line);
    m_started = m_last_deed = Now();
}

// --- Time ---

void Playing::RunFor(Duration span)
{
    const auto whole = std::chrono::ceil<std::chrono::milliseconds>(span);
    if (whole <= 0ms) return;
    m_player.Live(whole);
    if (m_plan.pulse) m_plan.pulse->store(Now().count(), std::memory_order_relaxed);
    // Spans that follow one another are one command, as far as the number can be a script's.
    static const std::string kRun = "run ";
    auto& script = m_outcome.script;
    std::int64_t total = whole.count();
    if (!script.empty() && script.back().starts_with(kRun) && script.back().ends_with("ms")) {
        const std::int64_t joined = total + std::stoll(script.back().substr(kRun.size()));
        if (joined <= std::numeric_limits<std::int32_t>::max()) {
            total = joined;
            script.pop_back();
        }
    }
    script.push_back(kRun + std::to_string(total) + "ms");
}

void Playing::RunTo(Instant when)
{
    while (Now() < when && !found()) {
        const Duration quiet = Now() - m_last_deed;
        Duration next = quiet + kLooks.back();
        for (const Duration look : kLooks) {
            if (look > quiet) {
                next = look;
                break;
            }
        }
        RunFor(std::min(m_last_deed + next, when) - Now());
        if (Now() - m_last_deed >= kLooks.front()) Quiet();
    }
}

// --- Looks ---

void Playing::Quiet() { Look(m_promised->Check()); }

void Playing::Look(const std::vector<Broken>& broken)
{
    for (const Broken& one : broken) {
        if (!found()) Note(one);
    }
}

void Playing::Note(const Broken& broken)
{
    const std::string clock = FormatCalendar(m_player.pc().clock());
    const Finding finding{broken.promise, broken.object, broken.promised, broken.is, broken.since,
                          Now(),          clock};
    const Gap* const gap = Explains(m_plan.gaps, finding, m_done);
    if (!gap) {
        m_outcome.finding = finding;
        return;
    }
    ++m_outcome.gaps[gap->name];
    for (const std::string& command : PuttingRight(finding)) Do(command);
}

void Playing::Found(const std::string& promise, const std::string& object, const std::string& is)
{
    Note({promise, object, "", is, Now()});
}

void Playing::LookForMisuse()
{
    Machine& pc = m_player.pc();
    for (const std::string& misuse : pc.misuses()) {
        if (!found()) Found("no handle is misused", misuse, "misused");
    }
    for (const auto& process : pc.processes()) {
        if (found()) return;
        const std::string path = ToUtf8(process->path());
        if (process->crashed()) Found("no program crashes", path, "crashed");
        // What a thread had that was still at work at the end, the system closes.
        if (process->lost_thread || m_ended_slowly.contains(process->id())) continue;
        for (const LeftOpen& left : process->left_open()) {
            const std::string name = ToUtf8(left.name);
            // The log is written to the last, and closed with the process.
            if (name.ends_with(R"(\HOLVLog.txt)") || name.starts_with(R"(\\.\pipe\)")) continue;
            if (!found()) Found("nothing is left open", left.kind + " " + name, "open");
        }
    }
}

// --- The life ---

void Playing::Live(const Life& life)
{
    for (const Deed& deed : life.deeds) {
        if (deed.at > life.span) break;
        RunTo(m_started + deed.at);
        if (found()) return;
        ++m_outcome.due;
        for (const std::string& line : deed.lines) Do(line);
        m_last_deed = Now();
    }
    RunTo(m_started + life.span);
}

bool Playing::Line(const ScriptLine& line)
{
    std::string command;
    for (const std::string& word : line.words) {
        const bool plain = !word.empty() && word.find_first_of(" #") == word.npos;
        command += (command.empty() ? "" : " ") + (plain ? word : "\"" + word + "\"");
    }
    if (!m_promised && command == "service install") m_promised.emplace(m_player.pc());
    if (m_promised && line.words.size() == 2 && line.words[0] == "run") {
        RunTo(Now() + DurationOf(line, line.words[1]));
    } else if (!command.starts_with("expect")) {
        if (command.starts_with("say ")) m_player.pc().scheduler.CountPoints(true);
        Do(command);
        m_last_deed = Now();
    }
    return !found();
}

void Playing::End()
{
    m_outcome.script.push_back("# the life's end");
    for (const std::string& command : kEnd) {
        if (found()) return;
        const bool done = Do(command);
        m_last_deed = Now();
        if (command == "run 3m") Quiet();
        // A switch may have removed the service: then its program is a plain server.
        if (!done && command == "service stop" && m_player.view().service() &&
            m_player.pc().services.Read(kServiceName)) {
            Found("a stop ends the service within a minute", "the service", "running");
        }
    }
    if (!found()) Look(m_promised->CheckEnd());
    if (!found()) LookForMisuse();
}

Outcome Playing::Result()
{
    m_outcome.lived = Now() - m_started;
    m_outcome.situations = m_situations.counts();
    m_outcome.met = m_situations.pairs();
    const auto& points = m_player.pc().scheduler.points();
    for (const auto& point : points) {
        m_outcome.points.push_back(point.choices);
        if (point.at == points.front().at) ++m_outcome.points_at_once;
    }
    return std::move(m_outcome);
}

}  // namespace

Outcome PlayUnderWatch(const std::vector<ScriptLine>& script, const PlayPlan& plan)
{
    Playing playing(plan, plan.options.machine);
    try {
        for (const ScriptLine& line : script) {
            if (!playing.Line(line)) break;
        }
        playing.Settle();
        playing.End();
    } catch (const StuckMachine& stuck) {
        Outcome outcome = playing.Result();
        outcome.finding = StuckFinding(stuck);
        return outcome;
    }
    return playing.Result();
}

Outcome Play(const Life& life, const PlayPlan& plan)
{
    Playing playing(plan, life.machine);
    try {
        playing.Home(life.home);
        playing.Live(life);
        playing.End();
    } catch (const StuckMachine& stuck) {
        Outcome outcome = playing.Result();
        outcome.finding = StuckFinding(stuck);
        return outcome;
    }
    return playing.Result();
}
