// The story of the PC's day: a line for each thing that a person would notice, with the PC's clock.
#pragma once

#include <memory>
#include <ostream>
#include <string_view>

#include "platform/virtual/core/machine.h"

class Story
{
public:
    Story(virtual_pc::Machine& pc, std::ostream& out);
    ~Story();
    Story(const Story&) = delete;
    Story& operator=(const Story&) = delete;

    // Adds a line that tells no effect.
    void Tell(std::string_view text);

    // Prints the lines that are kept back: those of an instant are printed together, in the order
    // of cause and effect.
    void Flush();

    // Tells that the PC is switched off here, if a program still runs, and nothing more.
    void End();

private:
    class Lines;

    virtual_pc::Machine& m_pc;
    // Shared with the journal, which has effects as long as the PC exists.
    std::shared_ptr<Lines> m_lines;
};
