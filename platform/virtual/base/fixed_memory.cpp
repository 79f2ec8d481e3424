#include "platform/virtual/base/fixed_memory.h"

#include <sys/mman.h>

#include <cstdint>
#include <new>

namespace virtual_pc {
namespace {

// A range that is free by default, with and without the sanitizers. Pages cost nothing until they
// are used.
constexpr std::uintptr_t kBegin = 0x40000000;
constexpr std::size_t kSize = 0x20000000;

void* Map(int flags)
{
    return mmap(reinterpret_cast<void*>(kBegin), kSize, PROT_READ | PROT_WRITE,
                MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | flags, -1, 0);
}

}  // namespace

FixedMemory::FixedMemory()
{
    void* memory = Map(MAP_FIXED_NOREPLACE);
    // The range is taken: use any other one. Only the addresses differ between runs then.
    if (memory == MAP_FAILED) memory = Map(0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    m_begin = static_cast<std::byte*>(memory);
}

FixedMemory::~FixedMemory() { munmap(m_begin, kSize); }

void* FixedMemory::Allocate(std::size_t size)
{
    constexpr std::size_t kAlignment = alignof(std::max_align_t);
    const std::size_t whole = (size + kAlignment - 1) / kAlignment * kAlignment;
    if (whole > kSize - m_used) throw std::bad_alloc();
    void* piece = m_begin + m_used;
    m_used += whole;
    return piece;
}

}  // namespace virtual_pc
