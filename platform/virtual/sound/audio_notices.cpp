#include "platform/virtual/sound/audio_notices.h"

#include <algorithm>

#include "platform/virtual/announcer/announcer.h"
#include "platform/virtual/com/com.h"
#include "platform/virtual/core/call.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/sound/audio.h"

namespace virtual_pc {
namespace {

class Work final : public Waitable
{
public:
    explicit Work(Reset reset) : Waitable(reset) {}
    std::string_view Kind() const override { return "sound system's work"; }
};

// Removes the thread from those inside the callback when the call returns or throws.
class Inside
{
public:
    Inside(Machine& machine, Registration& registration)
        : m_machine(machine), m_registration(registration)
    {
    }
    ~Inside()
    {
        const Hold hold(m_machine);
        std::erase(m_registration.inside, Thread::Self());
        m_registration.quieter->Signal();
    }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

private:
    Machine& m_machine;
    Registration& m_registration;
};

const void* CallbackOf(const Registration& registration)
{
    return registration.client ? static_cast<const void*>(registration.client)
                               : static_cast<const void*>(registration.callback);
}

// A volume callback gets the changes of its endpoint one after the other, in order; a client may
// get several notifications at once. Those of a removed registration are only dropped.
bool MayStart(const Registration& to) { return to.removed || to.client || to.inside.empty(); }

}  // namespace

std::string_view Registration::Kind() const
{
    return client ? "registration for endpoint notices" : "registration for volume notices";
}

std::wstring Registration::Name() const { return endpoint ? endpoint->name() : std::wstring(); }

void AudioNotices::Add(Call& call, const std::shared_ptr<Registration>& registration)
{
    registration->process = &call.process();
    registration->quieter = std::make_shared<virtual_pc::Work>(Waitable::Reset::automatic);
    registration->handle = call.Open(registration);
    std::erase_if(m_registrations, [](const auto& known) { return known->removed; });
    m_registrations.push_back(registration);
}

bool AudioNotices::Remove(Call& call, const void* place, const void* callback)
{
    const auto found = std::ranges::find_if(m_registrations, [&](const auto& known) {
        return !known->removed && known->place == place && CallbackOf(*known) == callback;
    });
    if (found == m_registrations.end()) return false;
    const std::shared_ptr<Registration> registration = *found;
    m_registrations.erase(found);
    call.machine.handles.Close(registration->handle);
    const auto others_inside = [&] {
        return std::ranges::any_of(registration->inside,
                                   [&](const Thread* thread) { return thread != &call.thread; });
    };
    while (others_inside() && !call.thread.ends) {
        Waitable::WaitFor(call.machine, call.thread, {registration->quieter}, false, kNever);
    }
    return true;
}

void AudioNotices::LoseClients()
{
    const Hold hold(m_machine);
    std::erase_if(m_registrations, [&](const std::shared_ptr<Registration>& registration) {
        if (!registration->client) return false;
        m_machine.handles.Close(registration->handle);
        return true;
    });
}

void AudioNotices::TellClients(std::string_view name, const Endpoint* about, const ToClient& tell)
{
    for (const auto& known : std::vector(m_registrations)) {
        if (!known->client) continue;
        Post({known, name, about ? about->name() : L"", [known, tell] { tell(*known->client); }});
    }
}

void AudioNotices::TellListeners(const Endpoint& about, const ToCallback& tell)
{
    if (!tells_listeners) return;
    for (const auto& known : std::vector(m_registrations)) {
        if (known->endpoint != &about) continue;
        Post({known, "OnNotify", about.name(), [known, tell] { tell(*known->callback); }});
    }
}

bool AudioNotices::IsInsideACallback(const Thread& thread) const
{
    return std::ranges::any_of(m_registrations, [&](const auto& known) {
        return std::ranges::find(known->inside, &thread) != known->inside.end();
    });
}

void AudioNotices::ForbidInCallbacks(std::string_view what) const
{
    const Hold hold(m_machine);
    const Thread* const self = Thread::Self();
    if (!self || !IsInsideACallback(*self)) return;
    m_machine.NoteMisuse(std::string(what) + " inside a callback of the sound system");
}

void AudioNotices::Post(Notice notice)
{
    Process& process = *notice.to->process;
    // A process that is ending gets no notifications.
    if (notice.to->removed || process.ending()) return;
    const Instant now = m_machine.now();
    const NoticeDelivery& how = m_machine.announcer.delivery;
    notice.due = std::max((IsInsideACallback(*Thread::Self()) ? now + kEcho : now) + how.late,
                          notice.to->last_due);
    notice.to->last_due = notice.due;
    Pool& pool = m_pools[&process];
    if (how.merged) {
        std::erase_if(pool.due, [&](const Notice& known) {
            return known.to == notice.to && known.name == notice.name &&
                   known.about == notice.about;
        });
    }
    if (how.doubled) pool.due.push_back(notice);
    if (!pool.work) pool.work = std::make_shared<virtual_pc::Work>(Waitable::Reset::automatic);
    pool.due.push_back(std::move(notice));
    if (pool.idle > 0) {
        --pool.idle;
        pool.work->Signal();
    } else if (pool.threads < threads_max) {
        ++pool.threads;
        process.StartThread(m_machine, [this, &process]() -> DWORD {
            process.Guard(*Thread::Self(), [&] { Work(process); });
            return 0;
        });
    }
}

// The body of a sound system thread; it runs until the process ends.
void AudioNotices::Work(Process& process)
{
    {
        const Hold hold(m_machine);
        Thread::Self()->membership = {1, m_machine.com.Multithreaded(process)};
    }
    for (;;) Deliver(Next(process));
}

AudioNotices::Notice AudioNotices::Next(Process& process)
{
    const Hold hold(m_machine);
    Pool& pool = m_pools[&process];
    for (;;) {
        const auto found = std::ranges::find_if(
            pool.due, [](const Notice& notice) { return MayStart(*notice.to); });
        if (found != pool.due.end()) {
            Notice notice = std::move(*found);
            pool.due.erase(found);
            if (notice.to->removed) continue;
            // From here on an unregistration waits for this call.
            notice.to->inside.push_back(Thread::Self());
            return notice;
        }
        ++pool.idle;
        Waitable::WaitFor(m_machine, *Thread::Self(), {pool.work}, false, kNever);
    }
}

void AudioNotices::Deliver(const Notice& notice)
{
    const Inside inside(m_machine, *notice.to);
    {
        const Hold hold(m_machine);
        Waitable::WaitFor(m_machine, *Thread::Self(), {}, false, notice.due);
        if (notice.to->removed) return;
        m_machine.journal.Record(
            "sound notice", {{"callback", std::wstring(notice.name.begin(), notice.name.end())},
                             {"endpoint", notice.about}});
    }
    EnterProcess(notice.deliver);
}

}  // namespace virtual_pc
