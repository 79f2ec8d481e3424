// What the service says: the lines that the debugger hears, which outlives processes, or those of
// the log file, since a mark. All texts are UTF-8.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tests/lines.h"

namespace virtual_pc {
class Machine;
}

struct HeardLine
{
    std::string who;   // the function that speaks; empty in the log file, which does not tell
    std::string text;  // without the speaker
    char level = '?';  // as a digit; '?' where the log file does not have the line
};

class Heard
{
public:
    enum class From
    {
        debugger,
        log_file,
    };

    // The mark starts at the first line.
    explicit Heard(const virtual_pc::Machine& pc, From from = From::debugger)
        : m_pc(pc), m_from(from)
    {
    }

    // Sets the mark behind all that was said until now.
    void Forget();

    // The lines since the mark of the functions that have `who` in their names. Lines that name no
    // function, and the header of the log file, are left out.
    std::vector<HeardLine> All(std::string_view who = {}) const;
    // The texts of these lines.
    Lines Said(std::string_view who = {}) const;
    // The same, behind their levels.
    Lines SaidWithLevels() const;
    // How many lines since the mark have `text` in them, in the speaker's name or in what it says.
    int Times(std::string_view text) const;
    bool Has(std::string_view text) const { return Times(text) > 0; }

    // As Said, SaidWithLevels and Has, and sets the mark behind what was said.
    Lines Take(std::string_view who = {});
    Lines TakeWithLevels();
    bool TakeHas(std::string_view text);

private:
    Lines DebuggerSinceMark() const;
    std::vector<HeardLine> FileSinceMark() const;
    std::string FileBytes() const;

    const virtual_pc::Machine& m_pc;
    const From m_from;
    std::size_t m_mark = 0;  // in lines of the debugger, or bytes of the file
};

// How often the state changed in these lines, and to which state last. Every change starts where
// the one before it ended, the first of them at HOLV_INIT; where not, that is a failure.
struct StateChanges
{
    int count = 0;
    std::string last = "HOLV_INIT";
};
StateChanges ExpectUnbrokenChain(const Heard& heard);
