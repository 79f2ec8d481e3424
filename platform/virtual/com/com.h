// COM: the classes, and the processes that serve them.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/com.h"
#include "platform/virtual/base/fixed_memory.h"
#include "platform/virtual/base/guid.h"
#include "platform/virtual/base/random.h"
#include "platform/virtual/com/marshal.h"
#include "platform/virtual/typelib/type_library.h"

namespace virtual_pc {

class Machine;
class Object;
class Process;
class Thread;
class Waitable;

class Com
{
public:
    Com(Machine& machine, std::uint64_t seed) : m_machine(machine), m_random(seed, 2) {}

    // --- In-process classes ---

    // Creates an object of an in-process class and queries it for an interface. Called without the
    // machine held, as the object may call the platform.
    using Factory = std::function<HRESULT(REFIID id, void** object)>;
    void AddInProcessClass(REFCLSID class_id, Factory factory);
    // Null when there is no such class.
    Factory FindInProcessClass(REFCLSID class_id) const;

    // A new identifier, drawn from the machine's seed.
    GUID NewGuid();

    // --- Classes that other processes serve ---

    // Starts the service that serves a class: S_OK when it runs or is starting. Called with the
    // machine held. The machine sets it, so that COM need not know the service manager.
    std::function<HRESULT(const std::wstring& service)> start_service;

    TypeLibraries type_libraries;

    // How a process secures its calls, as CoInitializeSecurity was asked to.
    struct CallSecurity
    {
        bool implicit = false;  // set by the system at the first marshalling, with its defaults
        bool descriptor = false;
        LONG services = -1;
        DWORD authentication = 0;
        DWORD impersonation = 0;
        DWORD capabilities = 0;
    };
    // Nothing while it is not settled. With the machine held.
    std::optional<CallSecurity> SecurityOf(const Process* process) const;

    // --- For the platform functions; with the machine held ---

    // Settles a process's security, once. False when it is settled already: by such a call, or
    // because an interface has come into the process or left one of its apartments.
    bool SettleSecurity(const Process* process, const CallSecurity& security);

    // A class object that a process has registered.
    struct Offered
    {
        DWORD registration;
        CLSID class_id;
        ExportedInterface object;
        Process* process;
        bool suspended;
        HANDLE handle;  // so that a registration that is left counts as open
    };

    DWORD Offer(REFCLSID class_id, ExportedInterface object, Process* process, bool suspended);
    // Null when there is no such registration.
    const Offered* FindOffer(DWORD registration) const;
    void Withdraw(DWORD registration);
    void SetSuspended(const Process* process, bool suspended);
    // A registered class object that is not suspended; nothing when there is none.
    std::optional<ExportedInterface> Serving(REFCLSID class_id) const;
    // The program that was started to serve a class and has yet to register it; null when there is
    // none. Keeps a second client from starting it again.
    Process*& Starting(REFCLSID class_id) { return m_starting[class_id]; }
    // Returns an object that is signalled the next time a process makes class objects available.
    std::shared_ptr<Waitable> AwaitServing();

    // Changes the count of references that keep a server's process alive, and returns the new
    // count.
    ULONG ChangeServerReferences(const Process* process, int by);

    // The multithreaded apartment of a process, created when there is none.
    std::shared_ptr<Apartment> Multithreaded(Process& process);

    // A new apartment of one thread.
    std::shared_ptr<Apartment> SingleThreaded(Process& process, const Thread& thread);

    // Abandons the apartments and removes the class objects of a process that has ended.
    void Forget(Process& process);

    // Keeps an object in memory after its last release, so that a later use of it is noticed: the
    // last kReleasedKept of them.
    static constexpr std::size_t kReleasedKept = 1'000;
    void KeepReleased(std::shared_ptr<Object> object);

    FixedMemory memory;  // for the objects, as programs log their addresses

private:
    Machine& m_machine;
    Random m_random;
    std::map<GUID, Factory, GuidLess> m_in_process_classes;
    std::vector<Offered> m_offered;
    DWORD m_next_registration = 1;
    std::map<GUID, Process*, GuidLess> m_starting;
    std::vector<std::shared_ptr<Waitable>> m_awaiting;
    std::map<const Process*, ULONG> m_server_references;
    std::map<const Process*, CallSecurity> m_security;
    std::map<const Process*, std::shared_ptr<Apartment>> m_multithreaded;
    std::vector<std::shared_ptr<Apartment>> m_apartments;  // of processes that have not ended
    std::deque<std::shared_ptr<Object>> m_released;
};

}  // namespace virtual_pc
