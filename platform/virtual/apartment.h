// Where component objects live, and the calls that go from one such place to another.
//
// A single-threaded apartment is one thread, whose message loop runs the calls that come in; while
// it waits for the answer of a call of its own, it runs them too. The multithreaded apartment of a
// process is all its other threads; a call that comes in runs on a thread of its own.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "platform/com.h"
#include "platform/message.h"
#include "platform/virtual/power_plans.h"

namespace virtual_pc {

class Apartment;
class Machine;
class Process;
class Proxy;
class Thread;

// The server's process has ended before a call, or during it.
inline constexpr auto kServerUnavailable = static_cast<HRESULT>(0x800706BAu);
inline constexpr auto kCallFailed = static_cast<HRESULT>(0x800706BEu);

// An object that is known outside the apartment it lives in: holds references to it there, until
// nobody outside needs it any more or its apartment is closed.
class Exported
{
public:
    // Takes over one reference.
    Exported(std::shared_ptr<Apartment> apartment, IUnknown* object);
    // Gives the references back, in the object's apartment.
    ~Exported();
    Exported(const Exported&) = delete;
    Exported& operator=(const Exported&) = delete;

    // The object's interface; null for one that has not been learned, or when the object is gone.
    // With the machine held.
    IUnknown* Find(REFIID id) const;
    // Asks the object for an interface. In its apartment, without the machine held.
    HRESULT Learn(REFIID id);
    // Hands out all references, for the caller to give back. With the machine held.
    std::vector<IUnknown*> Disconnect();

    const std::shared_ptr<Apartment> home;

private:
    std::map<GUID, IUnknown*, GuidLess> m_interfaces;
};

// A call on its way into an apartment. With the machine held.
struct RemoteCall
{
    std::function<HRESULT()> body;
    Thread* caller = nullptr;  // null when nobody waits for it, or not any more
    bool done = false;
    HRESULT result = kCallFailed;

    // Runs the body, without the machine held, and lets the caller go on.
    void Run();
    void Finish(HRESULT how);
};

class Apartment : public std::enable_shared_from_this<Apartment>
{
public:
    // Of one thread, or of a process's multithreaded ones when `thread` is null.
    Apartment(Machine& machine, Process& process, const std::shared_ptr<Thread>& thread)
        : m_machine(machine), m_process(process), m_single(thread != nullptr), m_thread(thread)
    {
    }

    bool single() const { return m_single; }
    Process& process() const { return m_process; }
    // Objects are called in it only until it is closed. With the machine held.
    bool open() const { return m_open; }

    // How many threads are in a multithreaded one. With the machine held.
    int threads = 0;

    // Runs `body` in the apartment and returns its result. The caller's thread waits, and serves
    // its own apartment meanwhile. Without the machine held.
    HRESULT Send(std::function<HRESULT()> body);
    // Runs `body` there a little later, if it is still open. With the machine held.
    void Post(std::function<void()> body);

    // Runs the call that one of the messages below stands for. On the apartment's thread, without
    // the machine held.
    void Serve();
    // The window that messages of calls are sent to; none in a multithreaded apartment.
    HWND window() { return reinterpret_cast<HWND>(this); }

    // Gives back the references of all its objects, and fails the calls on their way. On a thread
    // of the apartment, without the machine held.
    void Close();
    // The same when the process is gone, and its objects with it. With the machine held.
    void Abandon();

    // The objects that are known outside, by their identity. With the machine held.
    std::map<IUnknown*, std::weak_ptr<Exported>> exported;
    // What stands here for objects of other apartments.
    std::map<const Exported*, Proxy*> proxies;

private:
    HRESULT Unreachable() const;
    void Queue(std::shared_ptr<RemoteCall> call);
    std::shared_ptr<RemoteCall> Take();

    Machine& m_machine;
    Process& m_process;
    const bool m_single;
    const std::weak_ptr<Thread> m_thread;  // the one, while there is one
    bool m_open = true;
    std::deque<std::shared_ptr<RemoteCall>> m_queue;
};

}  // namespace virtual_pc
