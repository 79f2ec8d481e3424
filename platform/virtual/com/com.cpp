#include "platform/virtual/com/com.h"

#include <algorithm>
#include <utility>

#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/core/thread.h"

namespace virtual_pc {
namespace {

// Signalled once, when a process makes class objects available.
class Served final : public Waitable
{
public:
    std::string_view Kind() const override { return "wait for a class object"; }
};

class ClassRegistration final : public Object
{
public:
    explicit ClassRegistration(const CLSID& class_id) : m_class(FormatGuid(class_id)) {}
    std::string_view Kind() const override { return "registered class object"; }
    std::wstring Name() const override { return m_class; }

private:
    const std::wstring m_class;
};

}  // namespace

void Com::AddInProcessClass(REFCLSID class_id, Factory factory)
{
    const Hold hold(m_machine);
    m_in_process_classes[class_id] = std::move(factory);
}

Com::Factory Com::FindInProcessClass(REFCLSID class_id) const
{
    const Hold hold(m_machine);
    const auto found = m_in_process_classes.find(class_id);
    return found != m_in_process_classes.end() ? found->second : Factory{};
}

GUID Com::NewGuid()
{
    const Hold hold(m_machine);
    const std::uint64_t a = m_random.Next();
    const std::uint64_t b = m_random.Next();
    GUID guid;
    std::memcpy(&guid, &a, sizeof(a));
    std::memcpy(guid.Data4, &b, sizeof(b));
    // The version and variant of a random GUID.
    guid.Data3 = static_cast<std::uint16_t>((guid.Data3 & 0x0FFF) | 0x4000);
    guid.Data4[0] = static_cast<std::uint8_t>((guid.Data4[0] & 0x3F) | 0x80);
    return guid;
}

std::optional<Com::CallSecurity> Com::SecurityOf(const Process* process) const
{
    Hold::Require();
    const auto found = m_security.find(process);
    if (found == m_security.end()) return std::nullopt;
    return found->second;
}

bool Com::SettleSecurity(const Process* process, const CallSecurity& security)
{
    Hold::Require();
    return m_security.emplace(process, security).second;
}

DWORD Com::Offer(REFCLSID class_id, ExportedInterface object, Process* process, bool suspended)
{
    Hold::Require();
    const HANDLE handle =
        m_machine.handles.Open(std::make_shared<ClassRegistration>(class_id), process);
    m_offered.push_back(
        {m_next_registration, class_id, std::move(object), process, suspended, handle});
    if (!suspended) SetSuspended(process, false);
    return m_next_registration++;
}

const Com::Offered* Com::FindOffer(DWORD registration) const
{
    Hold::Require();
    const auto found = std::ranges::find(m_offered, registration, &Offered::registration);
    return found != m_offered.end() ? &*found : nullptr;
}

void Com::Withdraw(DWORD registration)
{
    Hold::Require();
    const Offered* offered = FindOffer(registration);
    if (!offered) return;
    m_machine.handles.Close(offered->handle);
    std::erase_if(m_offered, [&](const auto& o) { return o.registration == registration; });
}

void Com::SetSuspended(const Process* process, bool suspended)
{
    Hold::Require();
    for (Offered& offered : m_offered) {
        if (offered.process == process) offered.suspended = suspended;
    }
    if (suspended) return;
    std::erase_if(m_starting, [&](const auto& starting) { return starting.second == process; });
    for (const auto& waiting : std::exchange(m_awaiting, {})) waiting->Signal();
}

std::optional<ExportedInterface> Com::Serving(REFCLSID class_id) const
{
    Hold::Require();
    for (const Offered& offered : m_offered) {
        if (offered.class_id == class_id && !offered.suspended && !offered.process->ending()) {
            return offered.object;
        }
    }
    return std::nullopt;
}

std::shared_ptr<Waitable> Com::AwaitServing()
{
    Hold::Require();
    return m_awaiting.emplace_back(std::make_shared<Served>());
}

ULONG Com::ChangeServerReferences(const Process* process, int by)
{
    Hold::Require();
    return m_server_references[process] += static_cast<ULONG>(by);
}

std::shared_ptr<Apartment> Com::Multithreaded(Process& process)
{
    Hold::Require();
    std::shared_ptr<Apartment>& apartment = m_multithreaded[&process];
    if (!apartment || !apartment->open()) {
        apartment = std::make_shared<Apartment>(m_machine, process, nullptr);
        m_apartments.push_back(apartment);
    }
    return apartment;
}

std::shared_ptr<Apartment> Com::SingleThreaded(Process& process, const Thread& thread)
{
    Hold::Require();
    const auto& threads = m_machine.scheduler.threads();
    const auto self = std::ranges::find(threads, &thread, &std::shared_ptr<Thread>::get);
    m_apartments.push_back(std::make_shared<Apartment>(m_machine, process, *self));
    return m_apartments.back();
}

void Com::KeepReleased(std::shared_ptr<Object> object)
{
    m_released.push_back(std::move(object));
    if (m_released.size() > kReleasedKept) m_released.pop_front();
}

void Com::Forget(Process& process)
{
    Hold::Require();
    std::erase_if(m_apartments, [&](const auto& apartment) {
        if (&apartment->process() != &process) return false;
        apartment->Abandon();
        return true;
    });
    std::erase_if(m_offered, [&](const auto& offered) { return offered.process == &process; });
    std::erase_if(m_starting, [&](const auto& starting) { return starting.second == &process; });
    m_multithreaded.erase(&process);
    m_server_references.erase(&process);
    m_security.erase(&process);
}

}  // namespace virtual_pc
