// A thread of the machine: a host thread, and what the machine keeps about it.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/message.h"
#include "platform/virtual/base/host_signal.h"
#include "platform/virtual/core/scheduler.h"
#include "platform/virtual/core/waitable.h"

namespace virtual_pc {

class Apartment;
class Function;
class ProcessEntry;
class Process;

// The COM apartment that a thread is in, and how many of its CoInitialize calls are still to be
// undone.
struct ApartmentMembership
{
    int entered = 0;
    std::shared_ptr<Apartment> apartment = {};
};

// Handles the messages that are sent to a window. A single-threaded apartment is such a server: the
// calls that come into it arrive as messages.
class MessageServer
{
public:
    virtual ~MessageServer() = default;
    // Where the messages are addressed to.
    virtual HWND window() = 0;
    // Handles one message. Called on the window's thread, without the machine held.
    virtual void Serve() = 0;
};

// Thrown to unwind a thread whose process has ended, so that its frames release what they hold; in
// a killed process only the machine's frames (leaving.h).
struct ThreadEnds
{
};

// What the handle of a thread stands for: signalled when the thread has ended.
class ThreadObject final : public Waitable
{
public:
    std::string_view Kind() const override { return "thread"; }
};

class Thread
{
public:
    DWORD id = 0;
    Process* process = nullptr;  // null for the driver
    // Names it by its process's program and by the order in which both were started: the same in
    // two runs, however many threads other programs start.
    std::uint64_t key = 0;
    std::function<DWORD()> body;
    std::shared_ptr<ThreadObject> object;

    // Only the thread itself touches these.
    DWORD last_error = 0;
    std::vector<void*> tls;
    ProcessEntry* entry = nullptr;  // where the process was last entered (leaving.h)
    int boundaries = 0;             // between there and here
    // While it loads or unloads an image it cannot end: the platform calls of a killed process then
    // do nothing and fail.
    bool keeps_on = false;
    bool leaving = false;  // ThreadEnds is under way in a killed process

    // With the machine held.
    // It loads or unloads an image, which the host lets one thread do at a time: its platform calls
    // hand over to no other, which might be about to do the same.
    bool loads = false;
    std::int64_t priority = 0;                            // where the scheduler runs the highest
    std::map<const Function*, std::uint64_t> slow_calls;  // while functions take time
    // Calls that a fault with a rate may strike.
    std::map<const Function*, std::uint64_t> doubtful_calls;
    enum class State
    {
        ready,
        running,
        blocked,
        ended,
    };
    State state = State::ready;
    bool ends = false;  // its process is ending
    // Its process has been killed. Set with the machine held; any thread may read it.
    std::atomic<bool> vanishes = false;
    Wait wait;
    ApartmentMembership membership;
    std::shared_ptr<MessageServer> message_server;  // of the thread's window; null for none
    bool has_queue = false;
    std::deque<MSG> messages;

    HostSignal signal;  // wakes the host thread, and only it

    // The calling host thread's record; null when the machine does not know the thread.
    static Thread* Self();
    static void SetSelf(Thread* thread);
};

}  // namespace virtual_pc
