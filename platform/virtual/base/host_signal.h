// A wake-up for one host thread: a futex, so that handing over wakes exactly that thread.
#pragma once

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdint>

namespace virtual_pc {

// Raised by one thread, awaited by one other. A raise before the wait is kept.
class HostSignal
{
public:
    void Raise()
    {
        if (m_raised.exchange(kRaised, std::memory_order_acq_rel) == kAwaited) {
            syscall(SYS_futex, &m_raised, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
        }
    }

    void Await()
    {
        std::uint32_t expected = kIdle;
        // Idle to awaited; when it is raised already there is nothing to wait for.
        if (m_raised.compare_exchange_strong(expected, kAwaited, std::memory_order_acq_rel)) {
            while (m_raised.load(std::memory_order_acquire) == kAwaited) {
                syscall(SYS_futex, &m_raised, FUTEX_WAIT_PRIVATE, kAwaited, nullptr, nullptr, 0);
            }
        }
        m_raised.store(kIdle, std::memory_order_release);
    }

private:
    static constexpr std::uint32_t kIdle = 0;
    static constexpr std::uint32_t kAwaited = 1;
    static constexpr std::uint32_t kRaised = 2;

    std::atomic<std::uint32_t> m_raised{kIdle};
};

}  // namespace virtual_pc
