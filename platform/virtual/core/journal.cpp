#include "platform/virtual/core/journal.h"

#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/thread.h"

namespace virtual_pc {
namespace {

template <class T>
T FieldOr(const Effect& effect, std::string_view name, T otherwise)
{
    for (const auto& [field, value] : effect.fields) {
        if (field != name) continue;
        if (const T* found = std::get_if<T>(&value)) return *found;
    }
    return otherwise;
}

}  // namespace

std::wstring Effect::Text(std::string_view name) const
{
    return FieldOr<std::wstring>(*this, name, {});
}

std::int64_t Effect::Number(std::string_view name) const
{
    if (FieldOr<bool>(*this, name, false)) return 1;
    const auto number = FieldOr<std::int64_t>(*this, name, 0);
    return number ? number : static_cast<std::int64_t>(FieldOr<std::uint64_t>(*this, name, 0));
}

void Journal::Record(std::string_view kind, std::vector<std::pair<std::string_view, Value>> fields)
{
    if (!Listened(kind)) return;
    const Thread* self = Thread::Self();
    const Effect effect{m_machine.now(), m_machine.clock(), self ? self->id : 0, kind,
                        std::move(fields)};
    for (const auto& [listener, wanted] : m_listeners) {
        if (wanted(kind)) listener(effect);
    }
}

}  // namespace virtual_pc
