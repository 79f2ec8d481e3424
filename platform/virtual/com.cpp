#include "platform/virtual/com.h"

#include "platform/virtual/machine.h"

namespace virtual_pc {

void Com::AddInProcessClass(REFCLSID class_id, Factory factory)
{
    const Hold hold(m_machine);
    m_in_process_classes[class_id] = std::move(factory);
}

Com::Factory Com::FindInProcessClass(REFCLSID class_id) const
{
    const Hold hold(m_machine);
    const auto found = m_in_process_classes.find(class_id);
    return found != m_in_process_classes.end() ? found->second : Factory{};
}

GUID Com::NewGuid()
{
    const Hold hold(m_machine);
    const std::uint64_t a = m_random();
    const std::uint64_t b = m_random();
    GUID guid;
    std::memcpy(&guid, &a, sizeof(a));
    std::memcpy(guid.Data4, &b, sizeof(b));
    // A random identifier says so in its version and variant.
    guid.Data3 = static_cast<std::uint16_t>((guid.Data3 & 0x0FFF) | 0x4000);
    guid.Data4[0] = static_cast<std::uint8_t>((guid.Data4[0] & 0x3F) | 0x80);
    return guid;
}

}  // namespace virtual_pc
