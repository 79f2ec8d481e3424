// `holvpc storm`.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>

#include "storm/storm.h"

class StormCommand
{
public:
    // Adds the options to the subcommand, which must outlive this.
    StormCommand(CLI::App& command, const PlayOptions& defaults);
    // Returns the exit status: 0 without findings, 1 with.
    int Run();

private:
    void AddWays();
    void AddSchedules();
    int RunScheduled() const;

    StormOptions m_options;
    std::vector<std::filesystem::path> m_merged;
    std::vector<std::filesystem::path> m_watched;
    std::vector<std::filesystem::path> m_scheduled;
    bool m_two = false;
    std::uint64_t m_every = 1;
    bool m_gaps = false;
    CLI::App& m_command;
    CLI::Option* m_life = nullptr;
};
