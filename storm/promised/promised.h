// What the user was promised (docs/promises.md), seen from outside: from the journal's effects, the
// facets' present values and the settings in the registry, never from the service's own flags.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "storm/promised/belongings.h"
#include "storm/promised/circumstances.h"

// Something that is other than promised. `since` is when it began.
struct Broken
{
    std::string promise;
    std::string object;
    std::string promised;
    std::string is;
    virtual_pc::Instant since;
};

// Whether an effect is the PC's, and not what programs write: their lines are most of all effects,
// and nothing is promised of them.
bool IsOfThePc(std::string_view kind);

class Promised
{
public:
    // Before the service's installation: remembers what is the user's.
    explicit Promised(virtual_pc::Machine& pc);
    ~Promised();
    Promised(const Promised&) = delete;
    Promised& operator=(const Promised&) = delete;

    // Told of each deed just before it is played.
    void Deed(const ScriptLine& line);
    // At a quiet moment: what is wrong for longer than it may be.
    std::vector<Broken> Check();
    // After the faults were ended, one leave and return, and a stop: no time is allowed any more.
    std::vector<Broken> CheckEnd();

private:
    using Instant = virtual_pc::Instant;
    using Duration = virtual_pc::Duration;

    // Notes that something is wrong, where it has been so for longer than allowed.
    void Wrong(Broken broken, Duration allowed);
    void CheckBelongings(Instant from, Duration allowed_plan);
    void CheckInForce(Instant from);
    void CheckDevice(Instant from);
    void CheckNothingHeld(Instant from);
    void CheckRequestsInUse(Instant from);
    void CheckBack(Instant from, Duration allowed);
    void CheckGone();
    void CheckStop();

    virtual_pc::Machine& m_pc;
    Belongings m_belongings;
    Circumstances m_now;
    std::vector<Broken> m_broken;
    // The journal keeps its listeners for as long as the PC exists.
    std::shared_ptr<bool> m_listens = std::make_shared<bool>(true);
    bool m_at_end = false;
};
