#include "platform/virtual/core/handles.h"

#include <algorithm>
#include <utility>

#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/process.h"

namespace virtual_pc {

// The end where the handle is not open.
std::vector<HandleTable::Entry>::const_iterator HandleTable::PlaceOf(HANDLE handle) const
{
    const auto value = reinterpret_cast<std::uintptr_t>(handle);
    const auto place = std::ranges::lower_bound(m_open, value, {}, &Entry::handle);
    return place != m_open.end() && place->handle == value ? place : m_open.end();
}

HANDLE HandleTable::Open(std::shared_ptr<Object> object, Process* owner)
{
    Hold::Require();
    m_open.push_back({m_next, std::move(object), owner});
    m_next += kStep;
    return reinterpret_cast<HANDLE>(m_open.back().handle);
}

Object* HandleTable::Find(HANDLE handle) const
{
    const auto place = PlaceOf(handle);
    return place != m_open.end() ? place->object.get() : nullptr;
}

std::shared_ptr<Object> HandleTable::FindShared(HANDLE handle) const
{
    Hold::Require();
    const auto place = PlaceOf(handle);
    return place != m_open.end() ? place->object : nullptr;
}

bool HandleTable::Close(HANDLE handle)
{
    Hold::Require();
    const auto place = PlaceOf(handle);
    if (place == m_open.end()) return false;
    const std::shared_ptr<Object> object = place->object;
    m_open.erase(place);
    object->Closed();
    return true;
}

bool HandleTable::IsStale(HANDLE handle) const
{
    const auto value = reinterpret_cast<std::uintptr_t>(handle);
    const bool given = value >= kFirst && value < m_next && (value - kFirst) % kStep == 0;
    return given && PlaceOf(handle) == m_open.end();
}

std::vector<LeftOpen> HandleTable::CloseAllOf(Process* owner,
                                              std::vector<std::shared_ptr<Object>>& closed)
{
    Hold::Require();
    std::vector<LeftOpen> left;
    std::vector<Entry> owned;
    std::erase_if(m_open, [&](Entry& entry) {
        if (entry.owner != owner) return false;
        owned.push_back(std::move(entry));
        return true;
    });
    for (Entry& entry : owned) {
        left.push_back(
            {std::string(entry.object->Kind()), entry.object->Name(), owner ? owner->id() : 0});
        closed.push_back(std::move(entry.object));
        closed.back()->Closed();
    }
    return left;
}

std::vector<LeftOpen> HandleTable::List() const
{
    std::vector<LeftOpen> open;
    for (const Entry& entry : m_open) {
        open.push_back({std::string(entry.object->Kind()), entry.object->Name(),
                        entry.owner ? entry.owner->id() : 0});
    }
    return open;
}

}  // namespace virtual_pc
