// Plays scripts on a PC of their own.
#pragma once

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "pc/commands.h"
#include "pc/kept_folder.h"
#include "pc/trace.h"

// Something that the command line asks for and that cannot be had. The text names the option.
class SetupError : public std::runtime_error
{
public:
    explicit SetupError(const std::string& what) : std::runtime_error(Printable(what)) {}
};

// A signal, or an output that cannot be written, has stopped a command. The text says where.
class Stopped : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// What could not be written or kept, each with its reason.
using Losses = std::vector<std::string>;

// How holvpc ends.
enum Status
{
    kDone = 0,
    kFailed = 1,      // an expectation was not met, or the machine was stuck
    kRefused = 2,     // a script or the command line has an error
    kNotWritten = 3,  // the story, the trace or the kept PC could not be written
};

// Follows the commands that are played, as far as they run the PC.
class RunWatcher
{
public:
    virtual ~RunWatcher() = default;
    virtual void Begin(const virtual_pc::Machine& pc) = 0;
    // With the machine held, whenever all of its threads are blocked. Must not block.
    virtual void Tick(const virtual_pc::Machine& pc) = 0;
    virtual void End() = 0;
};

struct PlayOptions
{
    virtual_pc::Machine::Options machine = {};
    std::filesystem::path trace = {};      // empty for none
    TraceKinds trace_only = {};            // empty for all
    std::optional<double> speed = {};      // machine.pace where it was asked for
    RunWatcher* watcher = nullptr;         // null for none
    std::filesystem::path image = {};      // of the service, on the host
    std::filesystem::path resources = {};  // the image's
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

// The file of the trace. It outlives the PC, whose end has effects, too.
class TraceFile
{
public:
    // Throws SetupError when the file cannot be opened.
    TraceFile(const std::filesystem::path& file, Losses& losses);
    // Adds to the losses when the file was not written to its end.
    ~TraceFile();
    TraceFile(const TraceFile&) = delete;
    TraceFile& operator=(const TraceFile&) = delete;

    // Null when there is none.
    std::ostream* stream() { return m_stream.is_open() ? &m_stream : nullptr; }
    bool good() const { return m_stream.good(); }

private:
    std::filesystem::path m_file;
    std::ofstream m_stream;
    Losses& m_losses;
};

class Player
{
public:
    // `losses` is added to until the end of the player's destruction. Throws SetupError when the PC
    // cannot be set up.
    Player(const PlayOptions& options, std::ostream& out, Losses& losses);

    ~Player();
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    // Plays a line. Throws ScriptError, ExpectationFailed, StuckMachine or Stopped.
    void Play(const ScriptLine& line);
    // Lets the PC live for a time, unless a block of meanwhile is open. Throws StuckMachine or
    // virtual_pc::Interrupted.
    void Live(virtual_pc::Duration duration);

    ScriptContext& context() { return m_context; }

    virtual_pc::Machine& pc() { return m_pc; }
    const ServiceView& view() const { return m_view; }

private:
    void Act(const ScriptLine& line);

    std::ostream& m_out;
    RunWatcher* m_watcher;
    KeptFolder m_folder;
    TraceFile m_trace;
    std::function<void()> m_flush_story;
    std::unique_ptr<virtual_pc::Machine> m_machine;
    virtual_pc::Machine& m_pc;
    virtual_pc::Image m_image;
    ServiceView m_view;
    Story m_story;
    ScriptContext m_context;
    InstantBlocks m_blocks;
};

// The status of a session that has ended, which `status` tells of: kNotWritten where something was
// lost, which is written to `errors`, or `out` cannot be written.
Status EndWith(Status status, const Losses& losses, std::ostream& out, std::ostream& errors);

// Reads all scripts, and then plays one after the other on one PC. Errors are written to `errors`.
// A run that was stopped returns kFailed.
Status PlayScripts(const std::vector<std::filesystem::path>& scripts, const PlayOptions& options,
                   std::ostream& out, std::ostream& errors);
