#include "pc/player.h"

#include <algorithm>
#include <filesystem>

using namespace virtual_pc;

namespace {

std::ofstream OpenTrace(const std::filesystem::path& file)
{
    std::ofstream stream;
    if (file.empty()) return stream;
    stream.open(file, std::ios::binary);
    if (!stream) throw std::runtime_error(file.string() + ": cannot be written");
    return stream;
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

Player::Player(const PlayOptions& options, std::ostream& out)
    : m_trace(OpenTrace(options.trace)),
      m_pc(options.machine),
      m_image{.host_path = options.image, .resources = options.resources},
      m_view(m_pc),
      m_story(m_pc, out),
      m_context{m_pc, m_image, m_view, m_story, out, {}}
{
    if (m_trace.is_open()) TraceTo(m_pc, m_trace);
    m_pc.Install(m_image);
    // It is built beside the service.
    const std::filesystem::path ctl =
        std::filesystem::path(options.image).replace_filename("libholvctl.so");
    if (exists(ctl)) m_pc.Install(Image{.host_path = ctl, .path = kCtlPath});
}

void Player::Play(const ScriptLine& line)
{
    try {
        const Action action = Bind(line);
        m_blocks.Next(line);
        action(m_context);
    } catch (const StuckMachine& stuck) {
        throw StuckMachine(line.Place() + ": " + stuck.what());
    }
}

int PlayScripts(const std::vector<std::filesystem::path>& scripts, const PlayOptions& options,
                std::ostream& out, std::ostream& errors)
{
    try {
        std::vector<ScriptLine> lines;
        for (const std::filesystem::path& script : scripts) {
            for (ScriptLine& line : ReadScript(script)) lines.push_back(std::move(line));
        }
        // Check every line before playing the first.
        InstantBlocks blocks;
        for (const ScriptLine& line : lines) {
            Bind(line);
            blocks.Next(line);
        }
        blocks.End();
        Player player(options, out);
        for (const ScriptLine& line : lines) player.Play(line);
    } catch (const ScriptError& error) {
        errors << error.what() << "\n";
        return 2;
    } catch (const std::runtime_error& error) {
        errors << error.what() << "\n";
        Repeat(options, scripts, errors);
        return 1;
    }
    return 0;
}
