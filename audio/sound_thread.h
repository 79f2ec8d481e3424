// The audio manager's own thread.
#pragma once

#include <functional>
#include <memory>

#include "platform/lock.h"

// The notifications of Core Audio hand over to it what they may not do on the threads that notify:
// to wait, to register and unregister, and to release an object for the last time.
class SoundThread
{
public:
    using Work = std::function<void()>;

    // Starts the thread, unless it runs. One caller at a time for Start and End.
    static void Start();
    // Runs what is queued, without its delay, and ends the thread. Waits for that a second at most:
    // a thread that Core Audio holds up longer ends by itself.
    static void End();

    // Runs `work` on the thread after `delay_ms`, in the order of the times that are reached. The
    // work is also destroyed there. While no thread can be started, it waits for one, or for End.
    // Nothing is done before Start and after End. Any thread.
    static void Do(DWORD delay_ms, Work work);

private:
    class Queue;

    // The queue, with its thread. Null before Start and after End.
    static std::shared_ptr<Queue> Running();

    static CriticalSection s_lock;
    static std::shared_ptr<Queue> s_queue;
};
