#include "storm/situations.h"

#include <algorithm>
#include <stdexcept>

#include "platform/virtual/base/text.h"
#include "storm/promised/promised.h"

using namespace virtual_pc;

namespace {

// The texts of an effect's fields, one after the other.
std::wstring TextOf(const Effect& effect)
{
    std::wstring text;
    for (const auto& [name, value] : effect.fields) {
        if (const auto* words = std::get_if<std::wstring>(&value)) text += *words;
        if (const auto* on = std::get_if<bool>(&value)) text += *on ? L"on" : L"off";
        text += L' ';
    }
    return text;
}

std::size_t PlaceOf(std::string_view name)
{
    const std::span<const Mark> marks = AllMarks();
    const auto found = std::ranges::find(marks, name, &Mark::name);
    if (found == marks.end()) throw std::logic_error("no mark is called " + std::string(name));
    return static_cast<std::size_t>(found - marks.begin());
}

// What is counted against the state: what reaches the service's loop.
bool MeetsTheLoop(std::string_view kind)
{
    return kind == "service control" || kind == "power source" || kind == "sleep" ||
           kind == "away mode" || kind == "presence" || kind == "client call" ||
           kind == "plan activated" || kind == "mute";
}

}  // namespace

Situations::Situations(Machine& pc)
    : m_pc(pc), m_last(AllMarks().size(), Instant{-1}), m_ends(AllMarks().size())
{
    for (std::size_t i = 0; i < AllSituations().size(); ++i) {
        const Situation& situation = AllSituations()[i];
        m_first.push_back(PlaceOf(situation.first));
        m_ends[PlaceOf(situation.second)].push_back(i);
        m_counts[std::string(situation.name)] = 0;
    }
    const auto hear = [this, listens = m_listens](const Effect& effect) {
        if (*listens) Hear(effect);
    };
    pc.journal.Listen(hear, IsOfThePc);
    pc.faults.Listen([this](const Function& function) {
        ++m_pairs[ToUtf8(m_state) + ": " + function.name() + " fails"];
    });
}

Situations::~Situations()
{
    const Hold hold(m_pc);
    *m_listens = false;
    m_pc.faults.Listen(nullptr);
}

Counts Situations::counts() const
{
    const Hold hold(m_pc);
    return m_counts;
}

Counts Situations::pairs() const
{
    const Hold hold(m_pc);
    return m_pairs;
}

void Situations::Happens(std::size_t mark)
{
    const Instant now = m_pc.now();
    for (const std::size_t ends : m_ends[mark]) {
        const Situation& situation = AllSituations()[ends];
        const Instant first = m_last[m_first[ends]];
        if (first < Instant{0} || now - first > situation.within) continue;
        ++m_counts[std::string(situation.name)];
    }
    m_last[mark] = now;
}

void Situations::Deed(const std::string& command)
{
    const std::string::size_type first = command.find(' ');
    const std::string::size_type second =
        first == command.npos ? first : command.find(' ', first + 1);
    const bool tells_by_one_word = command.starts_with("clock ");
    const Hold hold(m_pc);
    ++m_pairs[ToUtf8(m_state) + ": " + command.substr(0, tells_by_one_word ? first : second)];
    const std::span<const Mark> marks = AllMarks();
    for (std::size_t i = 0; i < marks.size(); ++i) {
        if (marks[i].command.empty() || !command.starts_with(marks[i].command)) continue;
        if (marks[i].state.empty() || marks[i].state == m_state) Happens(i);
    }
}

void Situations::Hear(const Effect& effect)
{
    std::wstring text;
    const std::span<const Mark> marks = AllMarks();
    for (std::size_t i = 0; i < marks.size(); ++i) {
        if (marks[i].effect != effect.kind) continue;
        if (!marks[i].state.empty() && marks[i].state != m_state) continue;
        if (text.empty()) text = TextOf(effect);
        if (text.find(marks[i].text) != text.npos) Happens(i);
    }
    if (effect.kind == "state") m_state = effect.Text("to");
    if (!MeetsTheLoop(effect.kind)) return;
    ++m_pairs[ToUtf8(m_state) + ": " + std::string(effect.kind) + " " +
              ToUtf8(effect.Text("what"))];
}
