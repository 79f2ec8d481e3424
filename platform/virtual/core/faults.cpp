#include "platform/virtual/core/faults.h"

#include <algorithm>

#include "platform/virtual/base/names.h"
#include "platform/virtual/core/draws.h"
#include "platform/virtual/core/thread.h"

namespace virtual_pc {
namespace {

// Filled while the functions' constants are constructed, before any machine exists.
std::vector<Function*>& Functions()
{
    static std::vector<Function*> functions;
    return functions;
}

}  // namespace

Function::Function(const char* name, Failing failing, Role role)
    : m_name(name), m_failing(failing), m_role(role)
{
    Functions().push_back(this);
}

DWORD Function::DefaultError() const
{
    return m_failing == Failing::hresult ? static_cast<DWORD>(E_FAIL) : ERROR_GEN_FAILURE;
}

Function* Function::Find(std::string_view name)
{
    const auto found = std::ranges::find(Functions(), name, &Function::name);
    return found != Functions().end() ? *found : nullptr;
}

const std::vector<Function*>& Function::All() { return Functions(); }

Faults::Faults(std::uint64_t seed) : m_seed(Random(seed, 1).Next())
{
    for (Function* function : Functions()) {
        function->m_calls = 0;
        function->m_faulty = false;
    }
}

std::optional<std::string> Faults::Set(std::string_view name, const Fault& fault)
{
    Function* function = Function::Find(name);
    if (!function) return "there is no platform function \"" + std::string(name) + "\"";
    if (function->failing() == Failing::never) return std::string(name) + " cannot fail";
    if (fault.lie != Lie::none && function->role() != Role::acts) {
        return std::string(name) + " cannot lie";
    }
    m_set[function] = {fault};
    function->m_faulty = true;
    return std::nullopt;
}

void Faults::Clear(std::string_view name)
{
    Function* function = Function::Find(name);
    if (!function) return;
    m_set.erase(function);
    function->m_faulty = false;
}

void Faults::ClearAll()
{
    for (const auto& [function, armed] : m_set) function->m_faulty = false;
    m_set.clear();
    m_fail_nth = 0;
}

void Faults::FailNth(std::uint64_t n)
{
    m_fail_nth = n;
    m_fallible_calls = 0;
    m_failed = nullptr;
}

std::uint64_t Faults::CallsOf(std::string_view name) const
{
    const Function* function = Function::Find(name);
    return function ? function->m_calls.load() : 0;
}

std::optional<Faults::Struck> Faults::OnCall(Function& function, Thread& thread, Instant now)
{
    function.m_calls.store(function.m_calls.load(std::memory_order_relaxed) + 1,
                           std::memory_order_relaxed);
    if (function.m_failing == Failing::never) return std::nullopt;
    if (++m_fallible_calls == m_fail_nth) {
        m_failed = &function;
        return Struck{function.DefaultError(), Lie::none};
    }
    if (!function.m_faulty) return std::nullopt;
    Armed& armed = m_set[&function];
    return armed.fault.object.empty() ? Strike(function, armed, thread, now) : std::nullopt;
}

std::optional<Faults::Struck> Faults::OnObject(Function& function, std::wstring_view object,
                                               Thread& thread, Instant now)
{
    const auto found = m_set.find(&function);
    const bool concerns = found != m_set.end() && !found->second.fault.object.empty() &&
                          SameName(found->second.fault.object, object);
    return concerns ? Strike(function, found->second, thread, now) : std::nullopt;
}

std::optional<Faults::Struck> Faults::Strike(Function& function, Armed& armed, Thread& thread,
                                             Instant now)
{
    const Fault& fault = armed.fault;
    if (now >= fault.until) return std::nullopt;
    ++armed.calls;
    const auto drawn = [&] {
        return DrawOf(SeedOf(m_seed, function), thread, ++thread.doubtful_calls[&function])
                   .Fraction() < fault.rate;
    };
    const bool fails = fault.rate > 0
                           ? drawn()
                           : armed.calls >= fault.first && armed.calls - fault.first < fault.count;
    if (!fails) return std::nullopt;
    if (m_hear) m_hear(function);
    const DWORD error = fault.error.value_or(function.DefaultError());
    if (fault.raise) throw RaisedException{error};
    return Struck{error, fault.lie};
}

}  // namespace virtual_pc
