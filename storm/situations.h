// Rare situations, by name: a storm counts how often its lives have met each.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/virtual/core/machine.h"
#include "storm/outcome.h"

// Something that happens: the beginning of a command, or an effect.
struct Mark
{
    std::string_view name;
    // Of a command: its beginning. Of an effect: its kind, and a part of its fields' texts.
    std::string_view command;
    std::string_view effect = "";
    std::wstring_view text = L"";
    std::wstring_view state = L"";  // only in this state of the service
};

// `second` comes at most `within` after `first`.
struct Situation
{
    std::string_view name;
    std::string_view first;
    std::string_view second;
    virtual_pc::Duration within;
};

std::span<const Situation> AllSituations();
std::span<const Mark> AllMarks();

class Situations
{
public:
    // Listens to the PC's effects and faults from now on.
    explicit Situations(virtual_pc::Machine& pc);
    ~Situations();
    Situations(const Situations&) = delete;
    Situations& operator=(const Situations&) = delete;

    // A command that has been done.
    void Deed(const std::string& command);

    Counts counts() const;
    // Pairs of the service's state and what met it there: an event, a deed or a function that
    // failed.
    Counts pairs() const;

private:
    void Hear(const virtual_pc::Effect& effect);
    void Happens(std::size_t mark);

    virtual_pc::Machine& m_pc;
    std::wstring m_state = L"none";
    std::vector<virtual_pc::Instant> m_last;  // by the marks
    // For each mark, the situations of which it is the second half.
    std::vector<std::vector<std::size_t>> m_ends;
    std::vector<std::size_t> m_first;  // by the situations: the mark of the first half
    Counts m_counts;
    Counts m_pairs;
    std::shared_ptr<bool> m_listens = std::make_shared<bool>(true);
};
