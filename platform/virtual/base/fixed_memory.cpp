#include "platform/virtual/base/fixed_memory.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <new>

namespace virtual_pc {
namespace {

// A range that is free by default, with and without the sanitizers. Pages cost nothing until they
// are used.
constexpr std::uintptr_t kBegin = 0x40000000;
constexpr std::size_t kSize = 0x20000000;

constexpr std::size_t kPage = 4096;

std::size_t Whole(std::size_t size)
{
    constexpr std::size_t kAlignment = alignof(std::max_align_t);
    return (size + kAlignment - 1) / kAlignment * kAlignment;
}

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
    const std::size_t whole = Whole(size);
    const std::lock_guard lock(m_lock);
    if (whole > kSize - m_used) throw std::bad_alloc();
    void* piece = m_begin + m_used;
    Count(m_used, whole, true);
    m_used += whole;
    return piece;
}

void FixedMemory::Free(void* piece, std::size_t size)
{
    const std::lock_guard lock(m_lock);
    Count(static_cast<std::size_t>(static_cast<std::byte*>(piece) - m_begin), Whole(size), false);
}

void FixedMemory::Count(std::size_t at, std::size_t size, bool in_use)
{
    for (const std::size_t end = at + size; at < end;) {
        const std::size_t page = at / kPage;
        const std::size_t here = std::min(end, (page + 1) * kPage) - at;
        if (page >= m_in_use.size()) m_in_use.resize(page + 1);
        m_in_use[page] += in_use ? here : 0 - here;
        // A page that is still being filled is kept.
        if (m_in_use[page] == 0 && (page + 1) * kPage <= m_used) {
            madvise(m_begin + page * kPage, kPage, MADV_DONTNEED);
        }
        at += here;
    }
}

}  // namespace virtual_pc
