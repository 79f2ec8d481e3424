// The terminal that holvpc prints to, if it does.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <ostream>
#include <string>

#include "pc/player.h"

// Prints above a last line that stays: that of a run's progress, or the one that is being edited.
class Terminal : public std::streambuf
{
public:
    explicit Terminal(int file) : m_file(file) {}

    // The last line; "" for none.
    void SetLastLine(const std::string& text);

    // From now on, until false, another draws the last line: it is only erased here.
    void LeaveLastLine(bool leave) { m_left = leave; }
    // Whether it was erased since the last call.
    bool TakeErased() { return std::exchange(m_erased, false); }
    void EraseLastLine();

protected:
    int_type overflow(int_type c) override;
    int sync() override;

private:
    bool Write(const std::string& text) const;

    int m_file;
    std::string m_pending;
    std::string m_last_line;
    bool m_left = false;
    bool m_erased = false;
};

// The progress of a run that takes long: the PC's date, how fast its time passes, and how long the
// run still takes. `show` draws it, and erases it for "".
class Progress : public RunWatcher
{
public:
    using Clock = std::chrono::steady_clock;

    explicit Progress(std::function<void(const std::string&)> show) : m_show(std::move(show)) {}

    void Begin(const virtual_pc::Machine& pc) override { Begin(pc, Clock::now()); }
    void Tick(const virtual_pc::Machine& pc) override { Tick(pc, Clock::now()); }
    void End() override;

    void Begin(const virtual_pc::Machine& pc, Clock::time_point now);
    void Tick(const virtual_pc::Machine& pc, Clock::time_point now);

private:
    std::function<void(const std::string&)> m_show;
    virtual_pc::Instant m_from{0};
    Clock::time_point m_began;
    Clock::time_point m_next;
    bool m_runs = false;
    bool m_shown = false;
};

// The standard output, with a line of progress where it or the standard error is a terminal.
class Screen
{
public:
    Screen();

    std::ostream& out();
    // Null where there is none.
    Terminal* terminal() { return m_terminal.get(); }
    RunWatcher* progress() { return m_progress.get(); }

private:
    std::unique_ptr<Terminal> m_terminal;
    std::ostream m_out;  // of the terminal
    std::unique_ptr<Progress> m_progress;
};
