// What belongs to the user: the active plan, every value of every plan, every endpoint's mute
// state.
#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>

#include "pc/script.h"
#include "platform/virtual/core/machine.h"

inline constexpr const char* kActivePlanObject = "active plan";

enum class By
{
    user,  // by hand, by a policy, or another program
    service,
};

// Who has caused an effect that a listener of the journal is told of.
By CausedBy(const virtual_pc::Effect& effect);

struct Wish
{
    // Each is right: more than one where the user's value and the service's cannot be told apart.
    std::set<std::string> values = {};
    std::string latest = {};
    // What the service has written since it last wrote one of `values`.
    std::set<std::string> written = {};
    // The `values` of when these were written.
    std::set<std::string> before_written = {};
    // Of a value of the active plan: what it was before the user's change, which counts from the
    // next activation on.
    std::set<std::string> until_activated = {};
    // What `written` was when the service last wrote one of `values`, and when that was.
    std::set<std::string> settled = {};
    virtual_pc::Instant settled_at{};
    // The `values` before the user's last change.
    std::set<std::string> before_change = {};
    // The same of plans that were there before under this plan's name, for as long as the service
    // has not written into this one: until then it may remember theirs.
    std::set<std::string> gone_values = {};
    std::set<std::string> gone_written = {};
    virtual_pc::Instant touched{};  // by anyone
};

// What a mute change by hand means depends on the moment (docs/promises.md).
struct Moment
{
    // Nothing of never-sleep mode can be taken for the user's choice, or the other way round.
    bool normal_use = true;
    bool user_there = false;
    bool policy = false;           // names a plan, so that none can be activated anew
    bool values_unread = false;    // a fault keeps the service from reading what it changes
    bool default_unknown = false;  // a fault kept the service from learning the default endpoint
};

class Belongings
{
public:
    explicit Belongings(virtual_pc::Machine& pc);

    void Hear(const virtual_pc::Effect& effect, const Moment& moment);
    // Before a deed: it may make or rename a plan, or set a value that is already set, which has no
    // effect.
    void Deed(const ScriptLine& line);
    // After a kill: what the service has put back since then may still be in its journal.
    void Unsettle(virtual_pc::Instant settled_since);
    // After a power cut or a kill that the registry's faults kept the service from preparing for:
    // what is now may be the user's too.
    void TakeAsItIs(virtual_pc::Instant changed_since);

    // Takes in what is new.
    void Absorb();
    const Wish* Find(const std::string& name) const;
    // Whether the user's plan has been deleted, and no other chosen since: none can be active then.
    bool UsersPlanIsGone() const { return m_plan_is_gone; }
    // The current values, by the names of the wishes. Endpoints only while they are active.
    std::map<std::string, std::string> Now() const;
    // When an endpoint was plugged in; 0 for one that always was.
    virtual_pc::Instant PluggedAt(const std::string& endpoint) const;

private:
    void Set(const std::string& name, const std::string& value, bool sure = true);
    void HearService(const std::string& name, const std::string& value, const Moment& moment);
    void HearMute(const virtual_pc::Effect& effect, const Moment& moment);
    void HearPlan(const virtual_pc::Effect& effect, const Moment& moment);
    void Rename(const std::string& from, const std::string& to);
    // A plan is about to be made, perhaps in another's place.
    void Replace(const std::string& plan);

    virtual_pc::Machine& m_pc;
    std::map<std::string, Wish> m_wishes;
    std::map<std::string, Wish> m_replaced;
    std::map<std::string, virtual_pc::Instant> m_plugged;
    bool m_plan_may_come = false;
    bool m_plan_is_gone = false;
};

// The object's name of a plan's value, which the command "expect plan" takes.
std::string PlanValue(std::string_view plan, std::string_view source, std::string_view setting);
