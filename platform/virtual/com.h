// Component objects: their classes, and who serves them.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "platform/com.h"
#include "platform/virtual/fixed_memory.h"
#include "platform/virtual/marshal.h"
#include "platform/virtual/power_plans.h"
#include "platform/virtual/type_library.h"

namespace virtual_pc {

class Machine;
class Object;
class Process;
class Thread;
class Waitable;

class Com
{
public:
    Com(Machine& machine, std::uint64_t seed) : m_machine(machine), m_random(seed) {}

    // --- Classes that live in the process of whoever uses them ---

    // Makes an object of a class that is served in the caller's own process, and asks it for an
    // interface. Called without the machine held, as the object may call the platform.
    using Factory = std::function<HRESULT(REFIID id, void** object)>;
    void AddInProcessClass(REFCLSID class_id, Factory factory);
    // Null when there is no such class.
    Factory FindInProcessClass(REFCLSID class_id) const;

    // A new identifier, drawn from the machine's seed.
    GUID NewGuid();

    // --- Classes that other processes serve ---

    // Starts a service by its name, for the classes that belong to one: S_OK when it runs or is
    // starting. With the machine held. Whoever keeps the services sets it.
    std::function<HRESULT(const std::wstring& service)> start_service;

    TypeLibraries type_libraries;

    // --- The rooms' side; with the machine held ---

    // A class object that a process offers.
    struct Offered
    {
        DWORD registration;
        CLSID class_id;
        ExportedInterface object;
        Process* process;
        bool suspended;
    };

    DWORD Offer(REFCLSID class_id, ExportedInterface object, Process* process, bool suspended);
    // Null for a number that is none.
    const Offered* FindOffer(DWORD registration) const;
    void Withdraw(DWORD registration);
    void SetSuspended(const Process* process, bool suspended);
    // A class object that may be used now; nothing for none.
    std::optional<ExportedInterface> Serving(REFCLSID class_id) const;
    // The program that was started to serve a class and has yet to do so; null for none. It is not
    // started twice.
    Process*& Starting(REFCLSID class_id) { return m_starting[class_id]; }
    // Signalled whenever class objects come to be served.
    std::shared_ptr<Waitable> AwaitServing();

    // References that keep a server's process alive; the new count.
    ULONG ChangeServerReferences(const Process* process, int by);

    // The multithreaded apartment of a process, made when there is none.
    std::shared_ptr<Apartment> Multithreaded(Process& process);

    // A new apartment of one thread.
    std::shared_ptr<Apartment> SingleThreaded(Process& process, const Thread& thread);

    // What becomes of its apartments and class objects when a process has ended.
    void Forget(Process& process);

    // The objects that were given back, kept so that a use of one is noticed.
    void KeepReleased(std::shared_ptr<Object> object) { m_released.push_back(std::move(object)); }

    FixedMemory memory;  // of the objects, whose addresses programs log

private:
    Machine& m_machine;
    std::mt19937_64 m_random;
    std::map<GUID, Factory, GuidLess> m_in_process_classes;
    std::vector<Offered> m_offered;
    DWORD m_next_registration = 1;
    std::map<GUID, Process*, GuidLess> m_starting;
    std::vector<std::shared_ptr<Waitable>> m_awaiting;
    std::map<const Process*, ULONG> m_server_references;
    std::map<const Process*, std::shared_ptr<Apartment>> m_multithreaded;
    std::vector<std::shared_ptr<Apartment>> m_apartments;  // of processes that have not ended
    std::vector<std::shared_ptr<Object>> m_released;
};

}  // namespace virtual_pc
