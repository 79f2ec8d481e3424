#include "platform/virtual/core/memory.h"

#include <memory>
#include <vector>

namespace virtual_pc {
namespace {

class Memory final : public Object
{
public:
    Memory(std::size_t size, std::string_view kind) : m_bytes(size), m_kind(kind) {}
    std::string_view Kind() const override { return m_kind; }
    void* data() { return m_bytes.data(); }

private:
    std::vector<std::byte> m_bytes;
    std::string_view m_kind;
};

}  // namespace

void* Allocate(Call& call, std::size_t size, std::string_view kind)
{
    auto memory = std::make_shared<Memory>(size, kind);
    void* data = memory->data();
    call.machine.memory_handles[data] = call.Open(std::move(memory));
    return data;
}

bool Free(Call& call, void* memory)
{
    if (!memory) return true;
    const auto found = call.machine.memory_handles.find(memory);
    if (found == call.machine.memory_handles.end()) {
        call.machine.NoteMisuse("memory is freed that was not handed out, or twice");
        return false;
    }
    call.machine.handles.Close(found->second);
    call.machine.memory_handles.erase(found);
    return true;
}

}  // namespace virtual_pc
