// What the user was promised: that everything is as it was left by the user's own hand.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "pc/script.h"
#include "platform/virtual/core/machine.h"

// Something that is other than promised. `since` is when it began.
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
    // Before the service's installation: remembers what is the user's.
    explicit Promised(virtual_pc::Machine& pc);

    // Told of each deed just before it is played.
    void Deed(const ScriptLine& line);
    // At a quiet moment: what is wrong for longer than it may be.
    std::vector<Broken> Check();
    // After the faults were ended, one leave and return, and a stop.
    std::vector<Broken> CheckEnd();

private:
    struct Wish
    {
        std::string value;
        virtual_pc::Instant since{};
    };

    void Hear(const virtual_pc::Effect& effect);
    // A value is set, by the user's hand or not. What the user sets to its present value is no
    // wish.
    void Set(const std::string& name, const std::string& value, const virtual_pc::Effect& effect);
    // The present values, by the same names as the wishes.
    std::map<std::string, std::string> Now() const;
    // What was wished of these plans, which are made, renamed or deleted.
    void Forget(const std::vector<std::string>& plans);
    std::vector<Broken> Compare(bool at_end, virtual_pc::Duration patience);

    virtual_pc::Machine& m_pc;
    std::map<std::string, Wish> m_wishes;
    std::map<std::string, std::string> m_present;
    std::map<std::string, virtual_pc::Instant> m_wrong;
    virtual_pc::Instant m_works_since = virtual_pc::kNever;
    virtual_pc::Instant m_last_deed{};
};
