#include "audio/sound_thread.h"

#include <algorithm>
#include <deque>
#include <utility>

#include "log/log.h"
#include "platform/com.h"
#include "platform/owned.h"

CriticalSection SoundThread::s_lock;
std::shared_ptr<SoundThread::Queue> SoundThread::s_queue;

namespace {

constexpr const wchar_t* kSoundThread = L"SoundThread";
constexpr DWORD kSoundEndMs = 1000;
constexpr DWORD kAfterFailedWaitMs = 100;

}  // namespace

// Shared between the thread and SoundThread, as either may outlive the other.
class SoundThread::Queue
{
public:
    // Starts the thread of `queue`, unless it has one. Logs a failure. One caller at a time, as
    // with End.
    static void StartThreadOf(const std::shared_ptr<Queue>& queue)
    {
        if (queue->m_thread) return;
        auto passed = std::make_unique<std::shared_ptr<Queue>>(queue);
        queue->m_thread.Reset(CreateThread(nullptr, 0, Proc, passed.get(), 0, nullptr));
        if (queue->m_thread) {
            static_cast<void>(passed.release());  // the thread owns it now
        } else {
            Log(4, kSoundThread, L"The audio manager has no thread of its own, GLE=%d",
                GetLastError());
        }
    }

    void Add(DWORD delay_ms, Work work)
    {
        const ULONGLONG due = GetTickCount64() + delay_ms;
        {
            const ScopedLock lock(m_lock);
            const auto later = std::ranges::upper_bound(m_items, due, {}, &Item::due);
            m_items.insert(later, {due, std::move(work)});
        }
        SetEvent(m_changed.Get());
    }

    void End()
    {
        {
            const ScopedLock lock(m_lock);
            m_ends = true;
        }
        if (!m_thread) return DoAll();
        SetEvent(m_changed.Get());
        if (WaitForSingleObject(m_thread.Get(), kSoundEndMs) != WAIT_OBJECT_0) {
            Log(4, kSoundThread, L"The sound system has not answered for %d ms",
                static_cast<int>(kSoundEndMs));
        }
    }

private:
    struct Item
    {
        ULONGLONG due;  // by GetTickCount64
        Work work;
    };

    static DWORD WINAPI Proc(LPVOID passed)
    {
        const std::unique_ptr<std::shared_ptr<Queue>> queue(
            static_cast<std::shared_ptr<Queue>*>(passed));
        const bool in_apartment = SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        (*queue)->DoAll();
        if (in_apartment) CoUninitialize();
        return 0;
    }

    // Until the end.
    void DoAll()
    {
        while (const Work work = Next()) work();
    }

    // Waits for the next work; empty at the end.
    Work Next()
    {
        for (;;) {
            DWORD timeout = INFINITE;
            {
                const ScopedLock lock(m_lock);
                if (m_items.empty()) {
                    if (m_ends) return {};
                } else {
                    Item& next = m_items.front();
                    const ULONGLONG now = GetTickCount64();
                    if (m_ends || next.due <= now) {
                        Work work = std::move(next.work);
                        m_items.pop_front();
                        return work;
                    }
                    timeout = static_cast<DWORD>(next.due - now);
                }
            }
            // The queue is looked at again also after a wait that failed, though not at once.
            if (WaitForSingleObject(m_changed.Get(), timeout) == WAIT_FAILED) {
                Sleep(kAfterFailedWaitMs);
            }
        }
    }

    const OwnedHandle m_changed{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    OwnedHandle m_thread;
    CriticalSection m_lock;  // guards what follows
    bool m_ends = false;
    std::deque<Item> m_items;  // the next first
};

void SoundThread::Start()
{
    {
        const ScopedLock lock(s_lock);
        if (!s_queue) s_queue = std::make_shared<Queue>();
    }
    Running();
}

// A thread that could not be started is tried again when it is needed.
std::shared_ptr<SoundThread::Queue> SoundThread::Running()
{
    const ScopedLock lock(s_lock);
    if (s_queue) Queue::StartThreadOf(s_queue);
    return s_queue;
}

void SoundThread::End()
{
    std::shared_ptr<Queue> queue;
    {
        const ScopedLock lock(s_lock);
        queue.swap(s_queue);
    }
    if (queue) queue->End();
}

void SoundThread::Do(DWORD delay_ms, Work work)
{
    if (const std::shared_ptr<Queue> queue = Running()) queue->Add(delay_ms, std::move(work));
}
