// Component objects: apartments, and the classes that live in the process of whoever uses them.
#pragma once

#include <functional>
#include <map>
#include <random>

#include "platform/com.h"
#include "platform/virtual/power_plans.h"

namespace virtual_pc {

class Machine;
class Thread;

class Com
{
public:
    Com(Machine& machine, std::uint64_t seed) : m_machine(machine), m_random(seed) {}

    // Makes an object of a class that is served in the caller's own process, and asks it for an
    // interface. Called without the machine held, as the object may call the platform.
    using Factory = std::function<HRESULT(REFIID id, void** object)>;
    void AddInProcessClass(REFCLSID class_id, Factory factory);
    // Null when there is no such class.
    Factory FindInProcessClass(REFCLSID class_id) const;

    // A new identifier, drawn from the machine's seed.
    GUID NewGuid();

private:
    Machine& m_machine;
    std::mt19937_64 m_random;
    std::map<GUID, Factory, GuidLess> m_in_process_classes;
};

}  // namespace virtual_pc
