// Memory whose addresses are the same in every run, for objects whose address a program may print.
#pragma once

#include <cstddef>
#include <mutex>
#include <vector>

namespace virtual_pc {

// Pieces are allocated one after the other, and no address is used twice. What is freed goes back
// to the host page by page.
class FixedMemory
{
public:
    FixedMemory();
    ~FixedMemory();
    FixedMemory(const FixedMemory&) = delete;
    FixedMemory& operator=(const FixedMemory&) = delete;

    // With the machine held, so that the addresses are the same. Throws std::bad_alloc when there
    // is none left.
    void* Allocate(std::size_t size);
    // Any thread: the last that releases an object need not hold the machine.
    void Free(void* piece, std::size_t size);

private:
    // Counts the bytes of a piece in its pages, or takes them out again. With the lock held.
    void Count(std::size_t at, std::size_t size, bool in_use);

    std::byte* m_begin = nullptr;
    std::mutex m_lock;  // guards what follows
    std::size_t m_used = 0;
    std::vector<std::size_t> m_in_use;  // bytes of each page
};

// The same for the standard library.
template <class T>
struct FixedAllocator
{
    using value_type = T;
    explicit FixedAllocator(FixedMemory& from) : memory(&from) {}
    template <class U>
    explicit FixedAllocator(const FixedAllocator<U>& other) : memory(other.memory)
    {
    }
    T* allocate(std::size_t count) { return static_cast<T*>(memory->Allocate(count * sizeof(T))); }
    void deallocate(T* piece, std::size_t count) { memory->Free(piece, count * sizeof(T)); }
    template <class U>
    bool operator==(const FixedAllocator<U>& other) const
    {
        return memory == other.memory;
    }

    FixedMemory* memory;
};

}  // namespace virtual_pc
