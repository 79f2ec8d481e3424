// The notifications of the sound system: calls of registered callbacks, on threads that the sound
// system starts in the process that registered them.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/audio.h"
#include "platform/virtual/core/handles.h"
#include "platform/virtual/core/waitable.h"

namespace virtual_pc {

class Call;
class Endpoint;
class Machine;
class Process;
class Thread;

// A registered callback. It counts as an open handle until it is unregistered.
class Registration final : public Object
{
public:
    // Exactly one of these two is set.
    IMMNotificationClient* client = nullptr;
    IAudioEndpointVolumeCallback* callback = nullptr;
    // Where it was registered: for `client` its process, for `callback` the endpoint volume object.
    const void* place = nullptr;
    const Endpoint* endpoint = nullptr;  // null for a client
    Process* process = nullptr;
    HANDLE handle = nullptr;

    std::string_view Kind() const override;
    std::wstring Name() const override;
    void Closed() override { removed = true; }

    bool removed = false;
    std::vector<Thread*> inside;        // the threads that are in a call to it
    std::shared_ptr<Waitable> quieter;  // signalled when such a call has returned
    Instant last_due{0};                // of its latest notification
};

class AudioNotices
{
public:
    explicit AudioNotices(Machine& machine) : m_machine(machine) {}

    // How many threads the sound system has in a process. With one, all notifications come one
    // after the other.
    std::size_t threads_max = 4;
    // Whether callbacks that are registered for an endpoint's volume are called.
    bool tells_listeners = true;

    // Registers `registration`, whose fields up to `endpoint` are set, for the calling process.
    void Add(Call& call, const std::shared_ptr<Registration>& registration);
    // Ends the registration of `callback` (of either kind) at `place`, and waits until no other
    // thread is in a call to it. False when there is no such registration.
    bool Remove(Call& call, const void* place, const void* callback);
    // Notes as misuse what the sound system forbids its callbacks, when the calling thread is
    // inside one: real PCs may hang then.
    void ForbidInCallbacks(std::string_view what) const;
    // With the machine held: the sound system has no threads in it any more.
    void ProcessEnded(Process& process) { m_pools.erase(&process); }
    // Drops the registrations of all clients, which are not told.
    void LoseClients();

    // Notifies every client, or every callback registered for the endpoint's volume. `name` is the
    // callback's operation, for the journal.
    using ToClient = std::function<void(IMMNotificationClient&)>;
    using ToCallback = std::function<void(IAudioEndpointVolumeCallback&)>;
    void TellClients(std::string_view name, const Endpoint* about, const ToClient& tell);
    void TellListeners(const Endpoint& about, const ToCallback& tell);

private:
    struct Notice
    {
        std::shared_ptr<Registration> to;
        std::string_view name;
        std::wstring about;
        std::function<void()> deliver;
        Instant due{0};
    };
    // The sound system's threads in one process. They are started on demand, up to threads_max, and
    // then wait for work until the process ends.
    struct Pool
    {
        std::deque<Notice> due;
        std::size_t threads = 0;
        std::size_t idle = 0;
        std::shared_ptr<Waitable> work;
    };
    // The delay of notifications that a callback itself causes. Without it, two callbacks that undo
    // one another's change would go on for ever, and the clock would never move.
    static constexpr Duration kEcho = std::chrono::milliseconds{10};

    void Post(Notice notice);
    bool IsInsideACallback(const Thread& thread) const;
    void Work(Process& process);
    Notice Next(Process& process);
    void Deliver(const Notice& notice);

    Machine& m_machine;
    std::vector<std::shared_ptr<Registration>> m_registrations;
    std::map<Process*, Pool> m_pools;
};

}  // namespace virtual_pc
