// Events, timers, waits, threads, time and the calling thread.

#include "platform/kernel.h"

#include "platform/virtual/core/call.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/core/waker.h"

using namespace virtual_pc;

namespace {

class Event final : public Waitable
{
public:
    using Waitable::Waitable;
    std::string_view Kind() const override { return "event"; }
};

class Timer final : public Waitable, private Alarm
{
public:
    using Waitable::Waitable;
    std::string_view Kind() const override { return "waitable timer"; }
    void Closed() override { Disarm(); }

    void Arm(Instant due, Duration period, bool resume)
    {
        Unsignal();
        m_period = period;
        m_resume = resume;
        Scheduler& scheduler = Machine::Current().scheduler;
        // A time that has passed signals the timer at once, and the periods count from now.
        if (due <= scheduler.now()) {
            Disarm();
            Signal();
            if (m_period > Duration::zero()) scheduler.Set(*this, scheduler.now() + m_period);
        } else {
            scheduler.Set(*this, due);
        }
    }

    void Disarm() { Machine::Current().scheduler.Cancel(*this); }

private:
    bool Wakes() const override { return m_resume && Machine::Current().waker.WakeTimersAllowed(); }

    void Due() override
    {
        Machine& machine = Machine::Current();
        if (m_period > Duration::zero()) {
            machine.scheduler.Set(*this, machine.scheduler.now() + m_period);
        }
        Signal();
        if (m_resume) machine.waker.WakeByTimer();
    }

    Duration m_period{0};
    bool m_resume = false;
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
Function fn_get_local_time{"GetLocalTime", Failing::never};
Function fn_get_version{"GetVersion", Failing::never};
Function fn_get_version_ex{"GetVersionExW"};
Function fn_tls_alloc{"TlsAlloc"};

}  // namespace

extern "C" {

DWORD WINAPI GetLastError() { return Thread::Self()->last_error; }
void WINAPI SetLastError(DWORD error) { Thread::Self()->last_error = error; }

HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES, BOOL manualReset, BOOL initialState, LPCWSTR)
{
    Call call(fn_create_event);
    if (call.Fails()) return nullptr;
    auto event = std::make_shared<Event>(ResetOf(manualReset));
    if (initialState) event->Signal();
    return call.Open(std::move(event));
}

BOOL WINAPI SetEvent(HANDLE handle)
{
    return ActOn<Event>(fn_set_event, handle, [](Event& event) { event.Signal(); });
}

BOOL WINAPI ResetEvent(HANDLE handle)
{
    return ActOn<Event>(fn_reset_event, handle, [](Event& event) { event.Unsignal(); });
}

HANDLE WINAPI CreateWaitableTimerW(LPSECURITY_ATTRIBUTES, BOOL manualReset, LPCWSTR)
{
    Call call(fn_create_waitable_timer);
    if (call.Fails()) return nullptr;
    return call.Open(std::make_shared<Timer>(ResetOf(manualReset)));
}

BOOL WINAPI SetWaitableTimer(HANDLE handle, const LARGE_INTEGER* due, LONG period, PTIMERAPCROUTINE,
                             LPVOID, BOOL resume)
{
    Call call(fn_set_waitable_timer);
    if (call.Fails()) return FALSE;
    Timer* timer = call.Find<Timer>(handle);
    if (!timer) return FALSE;
    if (!due || period < 0) return call.Fail(ERROR_INVALID_PARAMETER);
    const Duration time{due->QuadPart};
    // The machine has no time zone: its UTC is its local time.
    const Instant when = time < Duration::zero()
                             ? call.machine.now() - time
                             : call.machine.now() + (time - call.machine.clock());
    timer->Arm(when, std::chrono::milliseconds{period}, resume != FALSE);
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
        process.Guard(*Thread::Self(), [&] { exit_code = start(parameter); });
        return exit_code;
    });
    if (threadId) *threadId = thread->id;
    return call.Open(thread->object);
}

BOOL WINAPI CloseHandle(HANDLE handle) { return CloseHandleOf<Object>(fn_close_handle, handle); }

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

void WINAPI GetLocalTime(SYSTEMTIME* time)
{
    const Call call(fn_get_local_time);
    *time = FromCalendar(call.machine.clock());
}

DWORD WINAPI GetVersion()
{
    const Call call(fn_get_version);
    return call.machine.os_version;
}

BOOL WINAPI GetVersionExW(OSVERSIONINFOW* version)
{
    Call call(fn_get_version_ex);
    if (call.Fails()) return FALSE;
    if (version->dwOSVersionInfoSize != sizeof(*version))
        return call.Fail(ERROR_INSUFFICIENT_BUFFER);
    const DWORD number = call.machine.os_version;
    constexpr DWORD kWindowsNt = 2;
    *version = {sizeof(*version), number & 0xFF, number >> 8 & 0xFF, 0, kWindowsNt, L""};
    return TRUE;
}

DWORD WINAPI TlsAlloc()
{
    Call call(fn_tls_alloc);
    if (call.Fails()) return TLS_OUT_OF_INDEXES;
    return call.process().tls_slots++;
}

// Without a Call: these touch nothing but the calling thread's own record.
LPVOID WINAPI TlsGetValue(DWORD index)
{
    const Thread& self = *Thread::Self();
    return index < self.tls.size() ? self.tls[index] : nullptr;
}

BOOL WINAPI TlsSetValue(DWORD index, LPVOID value)
{
    Thread& self = *Thread::Self();
    if (index == TLS_OUT_OF_INDEXES) {
        self.last_error = ERROR_INVALID_PARAMETER;
        return FALSE;
    }
    if (index >= self.tls.size()) self.tls.resize(index + 1);
    self.tls[index] = value;
    return TRUE;
}
}
