// Plays scripts on a PC of their own.
#pragma once

#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <ostream>
#include <vector>

#include "pc/commands.h"
#include "pc/trace.h"

struct PlayOptions
{
    virtual_pc::Machine::Options machine;
    std::filesystem::path trace;      // empty for none
    std::filesystem::path image;      // of the service, on the host
    std::filesystem::path resources;  // the image's
};

// Where the blocks of commands that happen at one instant begin and end.
class InstantBlocks
{
public:
    // Takes the next line. Throws ScriptError for a line that may not stand here.
    void Next(const ScriptLine& line);
    // After the last line. Throws ScriptError when a block is open.
    void End() const;

private:
    std::optional<ScriptLine> m_open;  // the line that opened the present block
};

class Player
{
public:
    // Throws std::runtime_error when the PC cannot be set up.
    Player(const PlayOptions& options, std::ostream& out);

    // Plays a line. Throws ScriptError, ExpectationFailed or StuckMachine.
    void Play(const ScriptLine& line);

    virtual_pc::Machine& pc() { return m_pc; }
    const ServiceView& view() const { return m_view; }

private:
    std::ofstream m_trace;
    virtual_pc::Machine m_pc;
    virtual_pc::Image m_image;
    ServiceView m_view;
    Story m_story;
    ScriptContext m_context;
    InstantBlocks m_blocks;
};

// Reads all scripts, and then plays one after the other on one PC. Returns the exit status: 0, 1
// when an assertion failed or the machine was stuck, 2 when a script cannot be read. Errors are
// written to `errors`.
int PlayScripts(const std::vector<std::filesystem::path>& scripts, const PlayOptions& options,
                std::ostream& out, std::ostream& errors);
