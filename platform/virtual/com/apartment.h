// COM apartments, and the calls from one into another.
//
// A single-threaded apartment has one thread. It runs incoming calls in its message loop, and while
// it waits for the answer to a call of its own. The multithreaded apartment of a process has all
// other threads; each incoming call runs on a thread made for it.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "platform/com.h"
#include "platform/message.h"
#include "platform/virtual/base/guid.h"
#include "platform/virtual/core/thread.h"

namespace virtual_pc {

class Apartment;
class Machine;
class Process;
class Proxy;
class Thread;

// The server's process has ended before a call, or during it.
inline constexpr auto kServerUnavailable = static_cast<HRESULT>(0x800706BAu);
inline constexpr auto kCallFailed = static_cast<HRESULT>(0x800706BEu);

// An object that was exported from its apartment. Holds references to it until nothing outside the
// apartment refers to it any more, or the apartment closes.
class Exported
{
public:
    // Takes over the caller's reference to `object`.
    Exported(std::shared_ptr<Apartment> apartment, IUnknown* object);
    // Has the references released in the object's apartment.
    ~Exported();
    Exported(const Exported&) = delete;
    Exported& operator=(const Exported&) = delete;

    // The object's interface; null when it was never queried (see Learn), or after Disconnect. With
    // the machine held.
    IUnknown* Find(REFIID id) const;
    // Queries the object for an interface and keeps the reference. Called in the apartment of the
    // object, without the machine held.
    HRESULT Learn(REFIID id);
    // Returns all references, which the caller must release. With the machine held.
    std::vector<IUnknown*> Disconnect();

    const std::shared_ptr<Apartment> home;

private:
    std::map<GUID, IUnknown*, GuidLess> m_interfaces;
};

// A call on its way into an apartment. With the machine held.
struct RemoteCall
{
    std::function<HRESULT()> body;
    Thread* caller = nullptr;  // null when no thread waits for the result
    bool done = false;
    HRESULT result = kCallFailed;

    // Runs the body, without the machine held, and wakes the caller.
    void Run();
    void Finish(HRESULT how);
};

class Apartment final : public MessageServer, public std::enable_shared_from_this<Apartment>
{
public:
    // The single-threaded apartment of `thread`, or the process's multithreaded one when that is
    // null.
    Apartment(Machine& machine, Process& process, const std::shared_ptr<Thread>& thread)
        : m_machine(machine), m_process(process), m_single(thread != nullptr), m_thread(thread)
    {
    }

    bool single() const { return m_single; }
    Process& process() const { return m_process; }
    // False once it is closed: calls into it then fail. With the machine held.
    bool open() const { return m_open; }

    // How many threads have entered it. With the machine held.
    int threads = 0;

    // Runs `body` in the apartment and returns its result. The calling thread waits. If its own
    // apartment is single-threaded, it runs the calls that come into that apartment meanwhile.
    // Without the machine held.
    HRESULT Send(std::function<HRESULT()> body);
    // Runs `body` there a little later, if it is still open. With the machine held.
    void Post(std::function<void()> body);

    // Runs the oldest queued call. DispatchMessage calls this for each message to window(), on the
    // apartment's thread and without the machine held.
    void Serve() override;
    // The window that the messages for incoming calls are addressed to; unused in a multithreaded
    // apartment.
    HWND window() override { return reinterpret_cast<HWND>(this); }

    // Releases the references to all exported objects, and fails the queued calls. On a thread of
    // the apartment, without the machine held.
    void Close();
    // Closes it after its process has ended: the objects went with the process and are not
    // released. With the machine held.
    void Abandon();

    // The exported objects, by their IUnknown. With the machine held.
    std::map<IUnknown*, std::weak_ptr<Exported>> exported;
    // The proxies in this apartment, by the object that each stands for.
    std::map<const Exported*, Proxy*> proxies;

private:
    HRESULT Unreachable() const;
    void Queue(std::shared_ptr<RemoteCall> call);
    std::shared_ptr<RemoteCall> Take();

    Machine& m_machine;
    Process& m_process;
    const bool m_single;
    const std::weak_ptr<Thread> m_thread;  // of a single-threaded apartment
    bool m_open = true;
    std::deque<std::shared_ptr<RemoteCall>> m_queue;
};

}  // namespace virtual_pc
