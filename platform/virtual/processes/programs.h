// The programs on the PC's disk, and the processes that were started from them.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/virtual/base/names.h"
#include "platform/virtual/core/launch.h"
#include "platform/virtual/core/process.h"

namespace virtual_pc {

class Machine;

class Programs
{
public:
    explicit Programs(Machine& machine) : m_machine(machine) {}

    // As the machine's operations of the same names.
    void Install(const Image& image);
    void Install(std::wstring_view path, std::function<int()> entry);
    Process* StartInstalled(std::wstring_view path, std::wstring_view command_line,
                            std::optional<Launch> launch = {});
    Process& Start(const Image& image, std::wstring_view arguments);
    Process& Start(std::function<int()> entry, std::wstring_view command_line);

    // Starts the first of the CandidatePrograms of a command line that is on the disk; null, and
    // the `error`, when there is none.
    Process* StartCommandLine(std::wstring_view command_line, std::optional<Launch> launch,
                              DWORD& error);

    // Process::AtCall for the next process that is started from `path`.
    void AtCall(std::wstring_view path, std::uint64_t number, std::function<void(Process&)> deed);

    // In the order in which they were started, with those that have ended.
    const std::vector<std::unique_ptr<Process>>& processes() const { return m_processes; }

    // Called with the machine held when an image with resources was put on the disk. The PC sets
    // it, so that the facets that read the resources need not be known here.
    std::function<void(const Image&)> installed;

private:
    struct Program
    {
        // Its path, and what is loaded unless there is an entry.
        std::shared_ptr<const Image> image;
        std::function<int()> entry;  // what is run instead of an image
    };
    struct Deed
    {
        std::uint64_t at_call;
        std::function<void(Process&)> deed;
    };
    Process& Begin(const Program& program, std::wstring_view command_line,
                   std::optional<Launch> launch = {});

    Machine& m_machine;
    std::vector<std::unique_ptr<Process>> m_processes;
    std::vector<Program> m_programs;
    std::map<std::wstring, Deed, NoCase> m_deeds;  // by the path of the program to be started
};

// The paths that a command line without a separate application name may stand for, in the order in
// which they are tried: the quoted text, or each prefix that ends at a blank; with ".exe" where the
// name has no extension.
std::vector<std::wstring> CandidatePrograms(std::wstring_view command_line);

}  // namespace virtual_pc
