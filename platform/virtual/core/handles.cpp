#include "platform/virtual/core/handles.h"

#include <algorithm>
#include <utility>

#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/process.h"

namespace virtual_pc {

std::size_t HandleTable::IndexOf(HANDLE handle) const
{
    const auto value = reinterpret_cast<std::uintptr_t>(handle);
    if (value < kFirst || (value - kFirst) % kStep != 0) return m_entries.size();
    return std::min((value - kFirst) / kStep, m_entries.size());
}

HANDLE HandleTable::Open(std::shared_ptr<Object> object, Process* owner)
{
    Hold::Require();
    m_entries.push_back({std::move(object), owner});
    return reinterpret_cast<HANDLE>(kFirst + (m_entries.size() - 1) * kStep);
}

Object* HandleTable::Find(HANDLE handle) const
{
    const std::size_t index = IndexOf(handle);
    return index < m_entries.size() ? m_entries[index].object.get() : nullptr;
}

std::shared_ptr<Object> HandleTable::FindShared(HANDLE handle) const
{
    Hold::Require();
    const std::size_t index = IndexOf(handle);
    return index < m_entries.size() ? m_entries[index].object : nullptr;
}

bool HandleTable::Close(HANDLE handle)
{
    Hold::Require();
    const std::size_t index = IndexOf(handle);
    if (index >= m_entries.size() || !m_entries[index].object) return false;
    const std::shared_ptr<Object> object = std::exchange(m_entries[index].object, nullptr);
    object->Closed();
    return true;
}

bool HandleTable::IsStale(HANDLE handle) const
{
    const std::size_t index = IndexOf(handle);
    return index < m_entries.size() && !m_entries[index].object;
}

std::vector<LeftOpen> HandleTable::CloseAllOf(Process* owner,
                                              std::vector<std::shared_ptr<Object>>& closed)
{
    Hold::Require();
    std::vector<LeftOpen> left;
    for (Entry& entry : m_entries) {
        if (!entry.object || entry.owner != owner) continue;
        left.push_back(
            {std::string(entry.object->Kind()), entry.object->Name(), owner ? owner->id() : 0});
        closed.push_back(std::exchange(entry.object, nullptr));
        closed.back()->Closed();
    }
    return left;
}

std::vector<LeftOpen> HandleTable::List() const
{
    std::vector<LeftOpen> open;
    for (const Entry& entry : m_entries) {
        if (!entry.object) continue;
        open.push_back({std::string(entry.object->Kind()), entry.object->Name(),
                        entry.owner ? entry.owner->id() : 0});
    }
    return open;
}

}  // namespace virtual_pc
