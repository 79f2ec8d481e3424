// What the user was promised.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "pc/script.h"
#include "platform/virtual/core/machine.h"

struct Broken
{
    std::string promise;
    std::string object;
    std::string promised;
    std::string is;
    virtual_pc::Instant since;
};

class Promised
{
public:
    explicit Promised(virtual_pc::Machine& pc);
    void Deed(const ScriptLine& line);
    std::vector<Broken> Check();
    std::vector<Broken> CheckEnd();

private:
    virtual_pc::Machine& m_pc;
    std::string m_plan;
    std::map<std::string, bool> m_muted;
};
