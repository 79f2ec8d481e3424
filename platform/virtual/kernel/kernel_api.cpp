// Events, timers, waits, threads, time and the calling thread.

#include "platform/kernel.h"

#include <algorithm>

#include "platform/virtual/core/call.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/core/waker.h"
#include "platform/virtual/kernel/object_names.h"

using namespace virtual_pc;

namespace {

class Event final : public Waitable
{
public:
    explicit Event(Reset reset, std::wstring name = {}) : Waitable(reset), m_name(std::move(name))
    {
    }
    std::string_view Kind() const override { return "event"; }
    std::wstring Name() const override { return m_name; }

private:
    const std::wstring m_name;
};

class Timer final : public Waitable, private Alarm
{
public:
    explicit Timer(Reset reset, std::wstring name = {}) : Waitable(reset), m_name(std::move(name))
    {
    }
    std::string_view Kind() const override { return "waitable timer"; }
    std::wstring Name() const override { return m_name; }
    void Closed() override
    {
        const bool shared = !m_name.empty() && weak_from_this().use_count() > 1;
        if (!shared) Disarm();
    }

    void Arm(Instant due, Duration period, bool resume, bool relative)
    {
        Unsignal();
        Disarm();
        m_relative = relative;
        m_period = period;
        m_resume = resume;
        Scheduler& scheduler = Machine::Current().scheduler;
        // A time that has passed signals the timer at once, and the periods count from now.
        if (due <= scheduler.now()) {
            Signal();
            if (m_period > Duration::zero()) scheduler.Set(*this, scheduler.now() + m_period);
        } else {
            scheduler.Set(*this, due);
        }
    }

    void Disarm() { Machine::Current().scheduler.Cancel(*this); }

private:
    bool Wakes() const override { return m_resume && Machine::Current().waker.WakeTimersAllowed(); }
    // Absolute times do, and before Windows 8 all timers. A timer that wakes the PC must, to fall
    // due while the PC sleeps.
    bool CountsSleep() const override
    {
        return !m_relative || m_resume || !Machine::Current().AtLeast(kWindows8);
    }

    void Due() override
    {
        Machine& machine = Machine::Current();
        if (m_period > Duration::zero()) {
            machine.scheduler.Set(*this, machine.scheduler.now() + m_period);
        }
        Signal();
        if (m_resume) machine.waker.WakeByTimer();
    }

    const std::wstring m_name;
    Duration m_period{0};
    bool m_resume = false;
    bool m_relative = false;
};

Waitable::Reset ResetOf(BOOL manual)
{
    return manual ? Waitable::Reset::manual : Waitable::Reset::automatic;
}

Instant DeadlineOf(const Machine& machine, DWORD milliseconds)
{
    if (milliseconds == INFINITE) return kNever;
    return machine.now() + std::chrono::milliseconds{milliseconds};
}

bool HasDoubles(std::vector<std::shared_ptr<Waitable>> objects)
{
    std::ranges::sort(objects);
    return std::ranges::adjacent_find(objects) != objects.end();
}

// Creates an event or a timer, or opens the one that has the name. Null with the last error set
// where the name is taken or none.
template <class T>
HANDLE CreateNamed(Call& call, Waitable::Reset reset, LPCWSTR name, bool signalled)
{
    return CreateOrOpen<T>(call, name, [&](std::wstring full) {
        auto made = std::make_shared<T>(reset, std::move(full));
        if (signalled) made->Signal();
        return made;
    });
}

// From 8.1 on, Windows tells a program that it is Windows 8, unless the program's manifest lists
// the later version; no program here has a manifest.
DWORD VersionTold(const Machine& machine)
{
    return machine.AtLeast(kWindows81) ? kWindows8 : machine.os_version.load();
}

constexpr DWORD kMostSlots = 1088;  // of thread-local storage, in a process

Function fn_create_event{"CreateEventW"};
Function fn_set_event{"SetEvent"};
Function fn_reset_event{"ResetEvent"};
Function fn_create_waitable_timer{"CreateWaitableTimerW"};
Function fn_set_waitable_timer{"SetWaitableTimer"};
Function fn_cancel_waitable_timer{"CancelWaitableTimer"};
Function fn_wait_for_single_object{"WaitForSingleObject"};
Function fn_wait_for_multiple_objects{"WaitForMultipleObjects"};
Function fn_sleep{"Sleep", Failing::never};
Function fn_create_thread{"CreateThread"};
Function fn_close_handle{"CloseHandle", Failing::last_error, Role::releases};
Function fn_get_current_process_id{"GetCurrentProcessId", Failing::never};
Function fn_get_tick_count{"GetTickCount64", Failing::never};
Function fn_query_unbiased_interrupt_time{"QueryUnbiasedInterruptTime", Failing::never};
Function fn_get_local_time{"GetLocalTime", Failing::never};
Function fn_get_system_time_as_file_time{"GetSystemTimeAsFileTime", Failing::never};
Function fn_get_version{"GetVersion", Failing::never};
Function fn_get_version_ex{"GetVersionExW"};
Function fn_tls_alloc{"TlsAlloc"};

}  // namespace

extern "C" {

DWORD WINAPI GetLastError() { return Thread::Self()->last_error; }
void WINAPI SetLastError(DWORD error) { Thread::Self()->last_error = error; }

HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES, BOOL manualReset, BOOL initialState, LPCWSTR name)
{
    Call call(fn_create_event);
    if (call.Fails()) return nullptr;
    return CreateNamed<Event>(call, ResetOf(manualReset), name, initialState != FALSE);
}

BOOL WINAPI SetEvent(HANDLE handle)
{
    return ActOn<Event>(fn_set_event, handle, [](Event& event) { event.Signal(); });
}

BOOL WINAPI ResetEvent(HANDLE handle)
{
    return ActOn<Event>(fn_reset_event, handle, [](Event& event) { event.Unsignal(); });
}

HANDLE WINAPI CreateWaitableTimerW(LPSECURITY_ATTRIBUTES, BOOL manualReset, LPCWSTR name)
{
    Call call(fn_create_waitable_timer);
    if (call.Fails()) return nullptr;
    return CreateNamed<Timer>(call, ResetOf(manualReset), name, false);
}

BOOL WINAPI SetWaitableTimer(HANDLE handle, const LARGE_INTEGER* due, LONG period, PTIMERAPCROUTINE,
                             LPVOID, BOOL resume)
{
    Call call(fn_set_waitable_timer);
    if (call.Fails()) return FALSE;
    Timer* timer = call.Find<Timer>(handle);
    if (!timer) return FALSE;
    if (!due) return call.Fail(ERROR_NOACCESS);
    if (period < 0) return call.Fail(ERROR_INVALID_PARAMETER);
    const Duration time{due->QuadPart};
    // The machine has no time zone: its UTC is its local time.
    const bool relative = time < Duration::zero();
    const Instant when =
        relative ? call.machine.now() - time : call.machine.now() + (time - call.machine.clock());
    timer->Arm(when, std::chrono::milliseconds{period}, resume != FALSE, relative);
    return TRUE;
}

BOOL WINAPI CancelWaitableTimer(HANDLE handle)
{
    return ActOn<Timer>(fn_cancel_waitable_timer, handle, [](Timer& timer) { timer.Disarm(); });
}

DWORD WINAPI WaitForSingleObject(HANDLE handle, DWORD milliseconds)
{
    Call call(fn_wait_for_single_object);
    if (call.Fails()) return WAIT_FAILED;
    auto object = call.FindShared<Waitable>(handle);
    if (!object) return WAIT_FAILED;
    return Waitable::WaitFor(call.machine, call.thread, {std::move(object)}, false,
                             DeadlineOf(call.machine, milliseconds));
}

DWORD WINAPI WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll,
                                    DWORD milliseconds)
{
    Call call(fn_wait_for_multiple_objects);
    if (call.Fails()) return WAIT_FAILED;
    if (count == 0 || count > MAXIMUM_WAIT_OBJECTS) {
        call.Fail(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    std::vector<std::shared_ptr<Waitable>> objects;
    objects.reserve(count);
    for (DWORD i = 0; i < count; ++i) {
        objects.push_back(call.FindShared<Waitable>(handles[i]));
        if (!objects.back()) return WAIT_FAILED;
    }
    if (waitAll && HasDoubles(objects)) {
        call.Fail(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    return Waitable::WaitFor(call.machine, call.thread, std::move(objects), waitAll,
                             DeadlineOf(call.machine, milliseconds));
}

void WINAPI Sleep(DWORD milliseconds)
{
    Call call(fn_sleep);
    if (call.Void()) return;
    if (milliseconds == 0) return call.machine.scheduler.Yield(call.thread);
    Waitable::WaitFor(call.machine, call.thread, {}, false, DeadlineOf(call.machine, milliseconds));
}

HANDLE WINAPI CreateThread(LPSECURITY_ATTRIBUTES, SIZE_T, LPTHREAD_START_ROUTINE start,
                           LPVOID parameter, DWORD, LPDWORD threadId)
{
    Call call(fn_create_thread);
    if (call.Fails()) return nullptr;
    Process& process = call.process();
    const auto thread = process.StartThread(call.machine, [=, &process]() -> DWORD {
        DWORD exit_code = 1;
        process.Guard(*Thread::Self(), [&] {
            exit_code = start(parameter);
            if (Thread::Self()->membership.entered > 0) {
                Machine::Current().NoteMisuse("a thread ends in an apartment that it has entered");
            }
        });
        return exit_code;
    });
    if (threadId) *threadId = thread->id;
    return call.Open(thread->object);
}

// The number that stands for the calling process is no handle: closing it does nothing.
BOOL WINAPI CloseHandle(HANDLE handle)
{
    if (handle != INVALID_HANDLE_VALUE) return CloseHandleOf<Object>(fn_close_handle, handle);
    Call call(fn_close_handle);
    return !call.Fails();
}

DWORD WINAPI GetCurrentThreadId() { return Thread::Self()->id; }

DWORD WINAPI GetCurrentProcessId()
{
    const Call call(fn_get_current_process_id);
    return call.thread.process ? call.thread.process->id() : 0;
}

ULONGLONG WINAPI GetTickCount64()
{
    const Call call(fn_get_tick_count);
    return static_cast<ULONGLONG>(
        std::chrono::floor<std::chrono::milliseconds>(call.machine.now()).count());
}

BOOL WINAPI QueryUnbiasedInterruptTime(ULONGLONG* time)
{
    const Call call(fn_query_unbiased_interrupt_time);
    if (!time) return FALSE;
    const Instant awake = call.machine.now() - call.machine.scheduler.slept();
    *time = static_cast<ULONGLONG>(std::chrono::floor<CalendarTime>(awake).count());
    return TRUE;
}

void WINAPI GetLocalTime(SYSTEMTIME* time)
{
    const Call call(fn_get_local_time);
    *time = FromCalendar(call.machine.clock());
}

void WINAPI GetSystemTimeAsFileTime(FILETIME* time)
{
    const Call call(fn_get_system_time_as_file_time);
    *time = ToFileTime(call.machine.clock() - kEastOfUtc);
}

DWORD WINAPI GetVersion()
{
    const Call call(fn_get_version);
    return VersionTold(call.machine);
}

BOOL WINAPI GetVersionExW(OSVERSIONINFOW* version)
{
    Call call(fn_get_version_ex);
    if (call.Fails()) return FALSE;
    if (version->dwOSVersionInfoSize != sizeof(*version))
        return call.Fail(ERROR_INSUFFICIENT_BUFFER);
    const DWORD number = VersionTold(call.machine);
    constexpr DWORD kWindowsNt = 2;
    *version = {sizeof(*version), number & 0xFF, number >> 8 & 0xFF, number >> 16, kWindowsNt, L""};
    return TRUE;
}

DWORD WINAPI TlsAlloc()
{
    Call call(fn_tls_alloc);
    if (call.Fails()) return TLS_OUT_OF_INDEXES;
    return call.process().tls_slots++;
}

// Without a Call: these touch nothing but the calling thread's own record. To tell a null pointer
// from a failure, a read that succeeds clears the last error.
LPVOID WINAPI TlsGetValue(DWORD index)
{
    Thread& self = *Thread::Self();
    self.last_error = index < kMostSlots ? NO_ERROR : ERROR_INVALID_PARAMETER;
    return index < self.tls.size() ? self.tls[index] : nullptr;
}

BOOL WINAPI TlsSetValue(DWORD index, LPVOID value)
{
    Thread& self = *Thread::Self();
    if (index >= kMostSlots) {
        self.last_error = ERROR_INVALID_PARAMETER;
        return FALSE;
    }
    if (index >= self.tls.size()) self.tls.resize(index + 1);
    self.tls[index] = value;
    return TRUE;
}
}
