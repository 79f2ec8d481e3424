#include "platform/virtual/com/apartment.h"

#include <algorithm>
#include <exception>

#include "platform/virtual/core/leaving.h"
#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/core/thread.h"

namespace virtual_pc {

// --- Exported objects ---

Exported::Exported(std::shared_ptr<Apartment> apartment, IUnknown* object)
    : home(std::move(apartment))
{
    m_interfaces[IID_IUnknown] = object;
}

Exported::~Exported()
{
    const Hold hold(Machine::Current());
    std::vector<IUnknown*> references = Disconnect();
    if (references.empty()) return;
    home->Post([references = std::move(references)] {
        for (IUnknown* reference : references) reference->Release();
    });
}

IUnknown* Exported::Find(REFIID id) const
{
    Hold::Require();
    const auto found = m_interfaces.find(id);
    return found != m_interfaces.end() ? found->second : nullptr;
}

HRESULT Exported::Learn(REFIID id)
{
    IUnknown* object = nullptr;
    {
        const Hold hold(Machine::Current());
        if (Find(id)) return S_OK;
        object = Find(IID_IUnknown);
    }
    if (!object) return RPC_E_DISCONNECTED;
    void* learned = nullptr;
    HRESULT result = E_FAIL;
    EnterProcess([&] { result = object->QueryInterface(id, &learned); });
    if (FAILED(result)) return result;
    {
        const Hold hold(Machine::Current());
        if (m_interfaces.emplace(id, static_cast<IUnknown*>(learned)).second) return S_OK;
    }
    // Another thread has queried it meanwhile.
    EnterProcess([&] { static_cast<IUnknown*>(learned)->Release(); });
    return S_OK;
}

std::vector<IUnknown*> Exported::Disconnect()
{
    Hold::Require();
    std::vector<IUnknown*> references;
    const auto identity = m_interfaces.find(IID_IUnknown);
    if (identity == m_interfaces.end()) return references;
    // A new Exported of the same object may have taken this one's entry already.
    const auto known = home->exported.find(identity->second);
    if (known != home->exported.end() && known->second.expired()) home->exported.erase(known);
    // The identity comes last, as it keeps the object alive.
    for (const auto& [id, reference] : m_interfaces) {
        if (id != IID_IUnknown) references.push_back(reference);
    }
    references.push_back(identity->second);
    m_interfaces.clear();
    return references;
}

// --- Calls ---

void RemoteCall::Run()
{
    struct Finishing
    {
        RemoteCall& call;
        HRESULT result = kCallFailed;
        ~Finishing()
        {
            // Destroy the body before finishing: its captures may hold the last reference to a
            // remote object, and releasing that needs a running thread.
            call.body = nullptr;
            const Hold hold(Machine::Current());
            call.Finish(result);
        }
    } finishing{*this};
    try {
        EnterProcess([&] { finishing.result = body(); });
    } catch (const ThreadEnds&) {
        throw;
    } catch (...) {
        // COM catches an exception that the object throws, and fails the call.
        finishing.result = RPC_E_SERVERFAULT;
    }
}

void RemoteCall::Finish(HRESULT how)
{
    done = true;
    result = how;
    if (caller && caller->wait.answer == this) Machine::Current().scheduler.MakeReady(*caller);
}

// S_OK, or the error with which calls into this apartment fail.
HRESULT Apartment::Unreachable() const
{
    if (m_process.ending() || !m_process.running()) return kServerUnavailable;
    if (m_single && m_thread.expired()) return RPC_E_DISCONNECTED;
    return m_open ? S_OK : RPC_E_DISCONNECTED;
}

void Apartment::Queue(std::shared_ptr<RemoteCall> call)
{
    if (!m_single) {
        m_process.StartThread(m_machine, [this, self = shared_from_this(), call]() -> DWORD {
            Thread& thread = *Thread::Self();
            thread.membership = {1, self};
            m_process.Guard(thread, [&] { call->Run(); });
            thread.membership = {};
            return 0;
        });
        return;
    }
    m_queue.push_back(std::move(call));
    MSG message{};
    message.hwnd = window();
    message.message = WM_USER;
    const std::shared_ptr<Thread> thread = m_thread.lock();
    thread->messages.push_back(message);
    if (thread->wait.for_message || thread->wait.answer) m_machine.scheduler.MakeReady(*thread);
}

// Removes the oldest queued call and the message that was posted for it; null when there is none.
std::shared_ptr<RemoteCall> Apartment::Take()
{
    if (m_queue.empty()) return nullptr;
    auto& messages = m_thread.lock()->messages;
    const auto message =
        std::ranges::find_if(messages, [this](const MSG& m) { return m.hwnd == window(); });
    if (message != messages.end()) messages.erase(message);
    std::shared_ptr<RemoteCall> call = std::move(m_queue.front());
    m_queue.pop_front();
    return call;
}

void Apartment::Serve()
{
    std::shared_ptr<RemoteCall> call;
    {
        const Hold hold(m_machine);
        if (m_queue.empty()) return;
        call = std::move(m_queue.front());
        m_queue.pop_front();
    }
    call->Run();
}

void Apartment::Post(std::function<void()> body)
{
    Hold::Require();
    if (FAILED(Unreachable())) return;
    const auto call = std::make_shared<RemoteCall>();
    call->body = [body = std::move(body)] {
        body();
        return S_OK;
    };
    Queue(call);
}

HRESULT Apartment::Send(std::function<HRESULT()> body)
{
    const Boundary boundary;
    Thread& self = *Thread::Self();
    const auto call = std::make_shared<RemoteCall>();
    call->body = std::move(body);
    call->caller = &self;
    // Unsets the caller on every way out, so that Finish does not wake a thread that ended while it
    // waited.
    struct Caller
    {
        Machine& machine;
        RemoteCall& call;
        ~Caller()
        {
            const Hold hold(machine);
            call.caller = nullptr;
        }
    } caller{m_machine, *call};
    {
        const Hold hold(m_machine);
        if (const HRESULT unreachable = Unreachable(); FAILED(unreachable)) return unreachable;
        if (self.ends) return kCallFailed;
        Queue(call);
    }
    for (;;) {
        std::shared_ptr<RemoteCall> incoming;
        {
            const Hold hold(m_machine);
            if (call->done) return call->result;
            const auto& own = self.membership.apartment;
            if (own && own->single()) incoming = own->Take();
            if (!incoming) {
                self.wait = {};
                self.wait.what = "for the answer of another apartment";
                self.wait.answer = call.get();
                m_machine.scheduler.Block(self);
                self.wait.answer = nullptr;
                continue;
            }
        }
        incoming->Run();
    }
}

// --- Closing ---

void Apartment::Close()
{
    std::vector<IUnknown*> references;
    std::deque<std::shared_ptr<RemoteCall>> left;
    {
        const Hold hold(m_machine);
        m_open = false;
        left.swap(m_queue);
        for (const auto& [identity, object] : std::map(exported)) {
            const std::shared_ptr<Exported> known = object.lock();
            if (!known) continue;
            const auto given = known->Disconnect();
            references.insert(references.end(), given.begin(), given.end());
        }
        exported.clear();
        for (const auto& call : left) {
            if (call->caller) call->Finish(RPC_E_DISCONNECTED);
        }
    }
    // Calls without a waiting caller are releases; run them.
    for (const auto& call : left) {
        if (!call->done) call->Run();
    }
    for (IUnknown* reference : references) reference->Release();
}

void Apartment::Abandon()
{
    Hold::Require();
    m_open = false;
    for (const auto& [identity, object] : std::map(exported)) {
        if (const std::shared_ptr<Exported> known = object.lock()) known->Disconnect();
    }
    exported.clear();
    for (const auto& call : m_queue) call->Finish(kServerUnavailable);
    m_queue.clear();
}

}  // namespace virtual_pc
