// The story of the PC's day: a line for each thing that a person would notice, with the PC's clock.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <string_view>

#include "platform/virtual/core/machine.h"

class Story
{
public:
    Story(virtual_pc::Machine& pc, std::ostream& out);

    // Adds a line that tells no effect.
    void Tell(std::string_view text);

private:
    void Hear(const virtual_pc::Effect& effect);
    void Print(virtual_pc::CalendarTime clock, std::string_view text);

    virtual_pc::Machine& m_pc;
    std::ostream& m_out;
    std::string m_day;  // of the last line
};
