#include "platform/virtual/processes/programs.h"

#include <algorithm>
#include <stdexcept>

#include "platform/session.h"
#include "platform/virtual/base/names.h"
#include "platform/virtual/core/machine.h"
#include "platform/virtual/disk/disk.h"

namespace virtual_pc {

void Programs::Install(const Image& image)
{
    const Hold hold(m_machine);
    std::erase_if(m_programs,
                  [&](const Program& known) { return known.image->path == image.path; });
    m_programs.push_back({std::make_shared<const Image>(image), {}});
    m_machine.disk.Write(image.path, "MZ");  // nothing on the PC reads it
    if (installed && !image.resources.empty()) installed(image);
}

void Programs::Install(std::wstring_view path, std::function<int()> entry)
{
    const Hold hold(m_machine);
    Image image;
    image.path = path;
    Install(image);
    m_programs.back().entry = std::move(entry);
}

Process* Programs::StartInstalled(std::wstring_view path, std::wstring_view command_line,
                                  std::optional<Launch> launch)
{
    const Hold hold(m_machine);
    const auto same = [&](const Program& program) { return SameName(program.image->path, path); };
    const auto found = std::ranges::find_if(m_programs, same);
    if (found == m_programs.end() || !m_machine.disk.Read(found->image->path)) return nullptr;
    return &Begin(*found, command_line, std::move(launch));
}

Process* Programs::StartCommandLine(std::wstring_view command_line, std::optional<Launch> launch,
                                    DWORD& error)
{
    const Hold hold(m_machine);
    error = ERROR_FILE_NOT_FOUND;
    for (const std::wstring& path : CandidatePrograms(command_line)) {
        std::optional<std::string> file;
        try {
            file = m_machine.disk.Read(path);
        } catch (const std::invalid_argument&) {
            // Not a path on the disk.
        }
        if (!file) continue;
        Process* process = StartInstalled(path, command_line, std::move(launch));
        error = process ? ERROR_SUCCESS : ERROR_BAD_EXE_FORMAT;
        return process;
    }
    return nullptr;
}

Process& Programs::Start(const Image& image, std::wstring_view arguments)
{
    const Hold hold(m_machine);
    Install(image);
    std::wstring command_line = L"\"" + image.path + L"\"";
    if (!arguments.empty()) command_line += L" " + std::wstring(arguments);
    return Begin(m_programs.back(), command_line);
}

Process& Programs::Start(std::function<int()> entry, std::wstring_view command_line)
{
    const Hold hold(m_machine);
    const auto image = std::make_shared<const Image>();
    if (!m_machine.disk.Read(image->path)) m_machine.disk.Write(image->path, "MZ");
    return Begin({image, std::move(entry)}, command_line);
}

Process& Programs::Begin(const Program& program, std::wstring_view command_line,
                         std::optional<Launch> launch)
{
    const auto same = [&](const auto& known) { return known->path() == program.image->path; };
    const auto start = static_cast<std::uint64_t>(std::ranges::count_if(m_processes, same));
    Process& process = *m_processes.emplace_back(
        std::make_unique<Process>(program.image, command_line, std::move(launch), start));
    if (auto planned = m_deeds.extract(program.image->path)) {
        process.AtCall(planned.mapped().at_call, std::move(planned.mapped().deed));
    }
    process.Begin(m_machine, program.entry);
    return process;
}

void Programs::AtCall(std::wstring_view path, std::uint64_t number,
                      std::function<void(Process&)> deed)
{
    const Hold hold(m_machine);
    m_deeds[std::wstring(path)] = {number, std::move(deed)};
}

std::vector<std::wstring> CandidatePrograms(std::wstring_view command_line)
{
    std::vector<std::wstring> programs;
    const auto add = [&](std::wstring_view path) {
        if (path.empty()) return;
        const std::wstring_view name = path.substr(path.rfind(L'\\') + 1);
        const bool bare = name.find(L'.') == name.npos;
        programs.push_back(std::wstring(path) + (bare ? L".exe" : L""));
    };
    if (command_line.starts_with(L'"')) {
        const std::wstring_view rest = command_line.substr(1);
        add(rest.substr(0, rest.find(L'"')));
        return programs;
    }
    for (std::size_t at = 0; at < command_line.size();) {
        at = std::min(command_line.find(L' ', at), command_line.size());
        add(command_line.substr(0, at));
        ++at;
    }
    return programs;
}

}  // namespace virtual_pc
