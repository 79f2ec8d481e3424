#include "pc/player.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

using namespace virtual_pc;

namespace {

// The options with a go_on that stops at an output that cannot be written, too.
std::unique_ptr<Machine> SwitchOn(const PlayOptions& options, const std::ostream& out,
                                  const TraceFile& trace, const std::function<void()>& flush_story)
{
    Machine::Options machine = options.machine;
    machine.go_on = [&out, &trace, &flush_story, watcher = options.watcher,
                     go_on = options.machine.go_on] {
        // All threads are blocked: what is to happen at this instant has happened.
        if (flush_story) flush_story();
        if (watcher) watcher->Tick(Machine::Current());
        return out.good() && trace.good() && (!go_on || go_on());
    };
    const std::string root = machine.root.empty() ? "" : "--root " + machine.root + ": ";
    try {
        return std::make_unique<Machine>(machine);
    } catch (const std::filesystem::filesystem_error& error) {
        throw SetupError(root + error.path1().string() + ": " + error.code().message());
    } catch (const std::exception& error) {
        throw SetupError(root + error.what());
    }
}

void Repeat(const PlayOptions& options, const std::vector<std::filesystem::path>& scripts,
            std::ostream& errors)
{
    if (options.machine.seed == 0) return;
    errors << "to repeat this run: holvpc run --seed " << options.machine.seed;
    for (const std::filesystem::path& script : scripts) errors << " " << script.string();
    errors << "\n";
}

// Commands that cannot happen at one instant, as they run the machine: their first words.
const std::vector<std::vector<std::string>> kTakeTime = {{"run"},
                                                         {"client"},
                                                         {"ctl"},
                                                         {"pc", "boot"},
                                                         {"pc", "shutdown"},
                                                         {"service", "install"},
                                                         {"service", "uninstall"},
                                                         {"service", "run"},
                                                         {"service", "stop"}};

}  // namespace

void InstantBlocks::Next(const ScriptLine& line)
{
    const auto begins_with = [&](const std::vector<std::string>& words) {
        return line.words.size() >= words.size() &&
               std::equal(words.begin(), words.end(), line.words.begin());
    };
    const bool begins = begins_with({"meanwhile"});
    const bool ends = begins_with({"}"});
    if (begins && m_open) throw ScriptError(line, "it is in a block of meanwhile already");
    if (ends && !m_open) throw ScriptError(line, "no block of meanwhile is open");
    if (m_open && std::ranges::any_of(kTakeTime, begins_with)) {
        throw ScriptError(line, "\"" + line.words[0] + "\" cannot happen at one instant");
    }
    if (begins) m_open = line;
    if (ends) m_open.reset();
}

void InstantBlocks::End() const
{
    if (m_open) throw ScriptError(*m_open, "the block is never closed");
}

TraceFile::TraceFile(const std::filesystem::path& file, Losses& losses)
    : m_file(file), m_losses(losses)
{
    if (file.empty()) return;
    m_stream.open(file, std::ios::binary);
    if (m_stream) return;
    throw SetupError("--trace " + file.string() +
                     ": cannot be written: " + std::generic_category().message(errno));
}

TraceFile::~TraceFile()
{
    if (!m_stream.is_open()) return;
    m_stream.close();
    if (!m_stream) m_losses.push_back("--trace " + m_file.string() + ": not written to its end");
}

Player::Player(const PlayOptions& options, std::ostream& out, Losses& losses)
    : m_out(out),
      m_watcher(options.watcher),
      m_folder(options.machine.root),
      m_trace(options.trace, losses),
      m_machine(SwitchOn(options, out, m_trace, m_flush_story)),
      m_pc(*m_machine),
      m_image{.host_path = options.image, .resources = options.resources},
      m_view(m_pc),
      m_story(m_pc, out),
      m_context{m_pc, m_image, m_view, m_story, out, {}}
{
    if (std::ostream* trace = m_trace.stream()) TraceTo(m_pc, *trace, options.trace_only);
    m_flush_story = [this] { m_story.Flush(); };
    m_pc.not_kept = [&losses, root = options.machine.root](const std::string& loss) {
        losses.push_back("--root " + root + ": " + loss);
    };
    m_pc.Install(m_image);
    // It is built beside the service.
    const std::filesystem::path ctl =
        std::filesystem::path(options.image).replace_filename("libholvctl.so");
    if (exists(ctl)) m_pc.Install(Image{.host_path = ctl, .path = kCtlPath});
}

Player::~Player() { m_story.End(); }

void Player::Act(const ScriptLine& line)
{
    const Action action = Bind(line);
    m_blocks.Next(line);
    struct Watched
    {
        RunWatcher* watcher;
        ~Watched()
        {
            if (watcher) watcher->End();
        }
    } watched{m_watcher};
    if (m_watcher) m_watcher->Begin(m_pc);
    action(m_context);
    m_story.Flush();
}

void Player::Play(const ScriptLine& line)
{
    try {
        Act(line);
    } catch (const StuckMachine& stuck) {
        throw StuckMachine(line.Place() + ": " + stuck.what());
    } catch (const Interrupted&) {
        const Hold hold(m_pc);
        throw Stopped(line.Place() + ": stopped at " + FormatCalendar(m_pc.clock()).substr(0, 19));
    }
    if (!m_out || !m_trace.good()) throw Stopped(line.Place() + ": stopped");
}

void Player::Live(Duration duration)
{
    if (!m_pc.at_one_instant) m_pc.RunFor(duration);
    m_story.Flush();
}

namespace {

// Plays the lines on a PC of their own. Errors are thrown, and losses added to.
void PlayLines(const std::vector<ScriptLine>& lines, const PlayOptions& options, std::ostream& out,
               Losses& losses)
{
    Player player(options, out, losses);
    for (const ScriptLine& line : lines) player.Play(line);
}

// Reads the scripts, and checks every line.
std::vector<ScriptLine> Checked(const std::vector<std::filesystem::path>& scripts)
{
    std::vector<ScriptLine> lines;
    for (const std::filesystem::path& script : scripts) {
        for (ScriptLine& line : ReadScript(script)) lines.push_back(std::move(line));
    }
    InstantBlocks blocks;
    for (const ScriptLine& line : lines) {
        Bind(line);
        blocks.Next(line);
    }
    blocks.End();
    return lines;
}

}  // namespace

Status EndWith(Status status, const Losses& losses, std::ostream& out, std::ostream& errors)
{
    for (const std::string& loss : losses) errors << loss << "\n";
    return losses.empty() && out.flush() ? status : kNotWritten;
}

Status PlayScripts(const std::vector<std::filesystem::path>& scripts, const PlayOptions& options,
                   std::ostream& out, std::ostream& errors)
{
    Losses losses;
    Status status = kDone;
    try {
        PlayLines(Checked(scripts), options, out, losses);
    } catch (const ScriptError& error) {
        errors << error.what() << "\n";
        status = kRefused;
    } catch (const SetupError& error) {
        errors << error.what() << "\n";
        status = kRefused;
    } catch (const Stopped& stopped) {
        if (out && losses.empty()) errors << stopped.what() << "\n";
        status = kFailed;
    } catch (const std::runtime_error& error) {
        errors << error.what() << "\n";
        Repeat(options, scripts, errors);
        status = kFailed;
    }
    return EndWith(status, losses, out, errors);
}
