#include "tests/fresh_service.h"

#include <cstddef>
#include <memory>
#include <vector>

// Where the linker has put the service's data (service_data.ld); null in a program without it.
extern "C" {
extern __attribute__((weak)) std::byte holv_service_data_begin[];
extern __attribute__((weak)) std::byte holv_service_data_end[];
extern __attribute__((weak)) std::byte holv_service_bss_begin[];
extern __attribute__((weak)) std::byte holv_service_bss_end[];
}

namespace {

// Byte by byte: memcpy would be reported by the address sanitizer for the gaps that it puts between
// variables.
__attribute__((no_sanitize("address", "thread", "undefined"))) void CopyBytes(
    const volatile std::byte* from, volatile std::byte* to, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i) to[i] = from[i];
}

// A part of the program's memory, and what it held in the beginning.
class KeptMemory
{
public:
    KeptMemory(std::byte* begin, const std::byte* end)
        : m_begin(begin), m_size(static_cast<std::size_t>(end - begin)), m_in_the_beginning(Copy())
    {
    }

    void Restore(bool leaks)
    {
        // Heap memory that the ended service still owned would go with its process. The copy keeps
        // it reachable, so that the leak sanitizer does not report it.
        if (!leaks) m_before.push_back(Copy());
        CopyBytes(m_in_the_beginning.get(), m_begin, m_size);
    }

private:
    std::unique_ptr<std::byte[]> Copy() const
    {
        auto copy = std::make_unique<std::byte[]>(m_size);
        CopyBytes(m_begin, copy.get(), m_size);
        return copy;
    }

    std::byte* const m_begin;
    const std::size_t m_size;
    const std::unique_ptr<std::byte[]> m_in_the_beginning;
    std::vector<std::unique_ptr<std::byte[]>> m_before;
};

}  // namespace

void FreshService(bool leaks)
{
    // Never destroyed: the leak sanitizer looks last.
    static auto* const kept = new KeptMemory[2]{
        {holv_service_data_begin, holv_service_data_end},
        {holv_service_bss_begin, holv_service_bss_end},
    };
    kept[0].Restore(leaks);
    kept[1].Restore(leaks);
}
