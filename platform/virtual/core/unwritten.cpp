#include "platform/virtual/core/unwritten.h"

#include <utility>

#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/thread.h"

namespace virtual_pc {

bool Unwritten::AtOnce()
{
    const Thread* self = Thread::Self();
    return !self || !self->process;
}

void Unwritten::Note(std::wstring_view store, std::function<void()> undo)
{
    Hold::Require();
    if (AtOnce()) return Flush(store);
    const auto place = m_stores.try_emplace(std::wstring(store)).first;
    std::deque<Write>& writes = place->second;
    const Instant now = m_machine.now();
    while (!writes.empty() && writes.front().at + kLazyWrite <= now) writes.pop_front();
    writes.push_back({now, std::move(undo)});
}

void Unwritten::Flush(std::wstring_view store)
{
    Hold::Require();
    const auto found = m_stores.find(store);
    if (found != m_stores.end()) found->second.clear();
}

void Unwritten::Lose()
{
    Hold::Require();
    const Instant now = m_machine.now();
    for (auto& [store, writes] : m_stores) {
        while (!writes.empty() && writes.front().at + kLazyWrite <= now) writes.pop_front();
        const std::size_t kept = Kept(writes.size());
        for (; writes.size() > kept; writes.pop_back()) writes.back().undo();
        writes.clear();
    }
}

}  // namespace virtual_pc
