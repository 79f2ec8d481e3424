// Faults: any platform function that can fail, failing on demand.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/base.h"
#include "platform/virtual/base/time.h"

namespace virtual_pc {

class Thread;

// How a function reports failure, and with which code when a fault names none.
enum class Failing
{
    never,       // it cannot fail
    last_error,  // a result, and the thread's last error (ERROR_GEN_FAILURE)
    status,      // a Win32 code as its result (ERROR_GEN_FAILURE)
    hresult,     // an HRESULT as its result (E_FAIL)
};

// Whether a function may end its thread.
enum class Role
{
    ordinary,
    // It releases something, so destructors call it while a thread unwinds: it never ends its
    // thread.
    releases,
    // It does something and answers only whether it did; a fault may let that be a lie.
    acts,
};

// What a fault answers.
enum class Lie
{
    none,      // an error, and nothing is done
    pretends,  // success, and nothing is done
    denies,    // an error, although it is done
};

// A platform function: its name and what the machine keeps about it. Each function has one such
// constant, beside its code.
class Function
{
public:
    explicit Function(const char* name, Failing failing = Failing::last_error,
                      Role role = Role::ordinary);
    Function(const Function&) = delete;
    Function& operator=(const Function&) = delete;

    const char* name() const { return m_name; }
    Failing failing() const { return m_failing; }
    Role role() const { return m_role; }
    // Whether a fault is set for it. With the machine held.
    bool faulty() const { return m_faulty; }
    DWORD DefaultError() const;

    // By name; null when no function has it.
    static Function* Find(std::string_view name);
    static const std::vector<Function*>& All();

private:
    friend class Faults;

    const char* m_name;
    Failing m_failing;
    Role m_role;
    // Reset by each new machine, and changed with that held; any thread may read the count.
    std::atomic<std::uint64_t> m_calls = 0;
    bool m_faulty = false;
};

// Thrown out of a platform function in place of a structured exception, where a fault asks for it.
struct RaisedException
{
    DWORD code;
};

class Faults
{
public:
    explicit Faults(std::uint64_t seed);

    struct Fault
    {
        // The error code or HRESULT; the function's default when absent.
        std::optional<DWORD> error = {};
        // Fails calls `first` to `first + count - 1` from now on, counted from 1.
        std::uint64_t first = 1;
        std::uint64_t count = 1;
        // Or, when above 0, fails each call with this probability: drawn from the seed, the
        // function, the thread and the count of its calls.
        double rate = 0;
        // Raises an exception with the code `error` instead of failing.
        bool raise = false;
        // Nothing fails after this time.
        Instant until = kNever;
        // Only calls about the object of this name fail: a power plan, a sound endpoint, a registry
        // key ("HKLM\\..."), a power request's reason, a file. Any when empty.
        std::wstring object = {};
        Lie lie = Lie::none;
    };

    // What a call must do.
    struct Struck
    {
        DWORD error;
        Lie lie;
    };

    static constexpr std::uint64_t kAlways = UINT64_MAX;

    // Sets the fault of a function, in place of an earlier one. Returns the text of an error when
    // there is no such function, or it cannot fail or lie; nothing on success.
    std::optional<std::string> Set(std::string_view function, const Fault& fault);
    void Clear(std::string_view function);
    void ClearAll();

    // Fails the n-th call (from 1) of any function that can fail, counted from now; 0 for none.
    void FailNth(std::uint64_t n);
    // How many calls of functions that can fail there were since FailNth.
    std::uint64_t fallible_calls() const { return m_fallible_calls; }
    // The function that FailNth made fail; null before that call.
    const Function* failed() const { return m_failed; }

    // Calls of a function since the machine was switched on.
    std::uint64_t CallsOf(std::string_view function) const;

    // Called, with the machine held, for each call on which a fault of its function strikes.
    void Listen(std::function<void(const Function&)> hear) { m_hear = std::move(hear); }

    // For Call: counts the call, and returns what a fault of the function makes of it, if any.
    std::optional<Struck> OnCall(Function& function, Thread& thread, Instant now);
    // The same for a fault of the object that the call concerns.
    std::optional<Struck> OnObject(Function& function, std::wstring_view object, Thread& thread,
                                   Instant now);

private:
    struct Armed
    {
        Fault fault;
        std::uint64_t calls = 0;
    };

    std::optional<Struck> Strike(Function& function, Armed& armed, Thread& thread, Instant now);

    const std::uint64_t m_seed;
    std::map<Function*, Armed> m_set;
    std::uint64_t m_fail_nth = 0;
    std::uint64_t m_fallible_calls = 0;
    const Function* m_failed = nullptr;
    std::function<void(const Function&)> m_hear;
};

}  // namespace virtual_pc
