#include "platform/virtual/core/faults.h"

#include <algorithm>

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

Faults::Faults(std::uint64_t seed) : m_random(seed, 1)
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

std::optional<DWORD> Faults::OnCall(Function& function)
{
    function.m_calls.store(function.m_calls.load(std::memory_order_relaxed) + 1,
                           std::memory_order_relaxed);
    if (function.m_failing == Failing::never) return std::nullopt;
    if (++m_fallible_calls == m_fail_nth) {
        m_failed = &function;
        return function.DefaultError();
    }
    if (!function.m_faulty) return std::nullopt;

    Armed& armed = m_set[&function];
    const Fault& fault = armed.fault;
    ++armed.calls;
    const bool fails = fault.rate > 0
                           ? m_random.Fraction() < fault.rate
                           : armed.calls >= fault.first && armed.calls - fault.first < fault.count;
    if (!fails) return std::nullopt;
    const DWORD error = fault.error.value_or(function.DefaultError());
    if (fault.raise) throw RaisedException{error};
    return error;
}

}  // namespace virtual_pc
