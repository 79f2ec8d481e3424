// How the sound system tells of what happens: registered callbacks, called on threads of its own in
// the process of whoever registered them.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/audio.h"
#include "platform/virtual/handles.h"
#include "platform/virtual/waitable.h"

namespace virtual_pc {

class Call;
class Endpoint;
class Machine;
class Process;
class Thread;

// A callback that somebody has registered. It counts as handed out until it is unregistered.
class Registration final : public Object
{
public:
    // Null for the callback of the other kind.
    IMMNotificationClient* client = nullptr;
    IAudioEndpointVolumeCallback* callback = nullptr;
    // Where it was registered: the enumerator's or the endpoint volume's object.
    const void* place = nullptr;
    const Endpoint* endpoint = nullptr;  // whose volume it is about
    Process* process = nullptr;
    HANDLE handle = nullptr;

    std::string_view Kind() const override;
    std::wstring Name() const override;
    void Closed() override { removed = true; }

    bool removed = false;
    std::vector<Thread*> inside;        // the threads that are in a call to it
    std::shared_ptr<Waitable> quieter;  // signalled when one of them has come back
    Instant last_due{0};                // of what it is to be told
};

class AudioNotices
{
public:
    explicit AudioNotices(Machine& machine) : m_machine(machine) {}

    // Registers `registration`, whose fields up to `endpoint` are set, for the calling process.
    void Add(Call& call, const std::shared_ptr<Registration>& registration);
    // Ends the registration of a callback (of either kind) at a place, and waits for the calls to
    // it that are under way, but for those that the caller is inside of. False when there is none.
    bool Remove(Call& call, const void* place, const void* callback);

    // Tells every client, or everybody who listens to the endpoint's volume. `name` is the
    // operation's, for the journal.
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
    // The sound system's threads in a process: made when there is work for them, up to a few; then
    // they wait for more until their process ends.
    struct Pool
    {
        std::deque<Notice> due;
        std::size_t threads = 0;
        std::size_t idle = 0;
        std::shared_ptr<Waitable> work;
    };
    static constexpr std::size_t kMaxThreads = 4;
    // What a callback itself brings about is told a little later. Two callbacks that undo one
    // another's work would otherwise go on for ever at a standing clock.
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
