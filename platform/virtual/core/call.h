// The door between the service and the machine: every platform function passes through a Call.
#pragma once

#include <memory>
#include <type_traits>

#include "platform/virtual/core/faults.h"
#include "platform/virtual/core/leaving.h"
#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/thread.h"

namespace virtual_pc {

// One call of a platform function. Making it
// - may hand over to another thread (deterministic mode with a seed),
// - ends the thread when its process has ended or been killed,
// - holds the machine until the Call is destroyed,
// - counts the call, and takes the fault that is set for it, if any.
//
//     Function fn_set_event{"SetEvent"};              // at namespace scope
//     BOOL SetEvent(HANDLE handle)
//     {
//         Call call(fn_set_event);
//         if (call.Fails()) return FALSE;               // last error is set
//         Event* event = call.Find<Event>(handle);      // null: ERROR_INVALID_HANDLE is set
//         if (!event) return FALSE;
//         ...
class Call : Boundary
{
public:
    explicit Call(Function& function);

    // Whether a fault makes the call fail. Sets the thread's last error for functions that report
    // so.
    bool Fails();
    // Whether a fault is set for the function: asked before a name is put together for FailsFor.
    bool faulty() const { return m_function.faulty(); }
    // The same as Fails for a fault of the object that the call concerns, by its name.
    bool FailsFor(std::wstring_view object);
    // For functions that act, after Fails and FailsFor: whether a fault makes the call answer
    // success and do nothing; whether it must answer the error although it has done its work.
    bool Pretends() const { return m_lie == Lie::pretends; }
    bool Denies();
    // The code to fail with: for functions that return a status or an HRESULT.
    DWORD error() const { return *m_error; }
    // Whether the calling process has been killed: the function must then have no effect
    // (leaving.h). Fails is true then as well; this is for functions that cannot report a failure.
    bool Void() const { return m_void; }

    // Sets the last error and returns FALSE.
    BOOL Fail(DWORD error);

    // The object of a handle; null, with ERROR_INVALID_HANDLE as last error, when the handle is not
    // open or stands for another kind of thing, and with the fault's error when a fault of the
    // object makes the call fail. The use of a closed handle is noted as misuse.
    template <class T>
    T* Find(HANDLE handle)
    {
        T* object = dynamic_cast<T*>(machine.handles.Find(handle));
        if (!object) BadHandle(handle);
        return object && m_function.faulty() && FailsFor(object->Name()) ? nullptr : object;
    }
    template <class T>
    std::shared_ptr<T> FindShared(HANDLE handle)
    {
        const std::shared_ptr<Object> found = machine.handles.FindShared(handle);
        std::shared_ptr<T> object;
        if constexpr (std::is_same_v<T, Waitable>) {
            T* const waitable = found ? found->AsWaitable() : nullptr;
            if (waitable) object = {found, waitable};
        } else {
            object = std::dynamic_pointer_cast<T>(found);
        }
        if (!object) BadHandle(handle);
        if (object && m_function.faulty() && FailsFor(object->Name())) object = nullptr;
        return object;
    }

    // A new handle that belongs to the calling process.
    HANDLE Open(std::shared_ptr<Object> object);

    // The calling process. The driver (a script or test) calls without one: then this aborts the
    // program.
    Process& process();

    Machine& machine;
    Thread& thread;

private:
    void BadHandle(HANDLE handle);
    void EndWithProcess();
    void TakeTime();
    bool Take(const std::optional<Faults::Struck>& struck);

    Function& m_function;
    Hold m_hold;
    std::optional<DWORD> m_error;
    Lie m_lie = Lie::none;
    bool m_void = false;
};

// The whole of a function that acts on the object of one handle. FALSE, with the last error set,
// when a fault makes it fail or the handle is not that of a T.
template <class T, class Action>
BOOL ActOn(Function& function, HANDLE handle, Action action)
{
    Call call(function);
    if (call.Fails()) return FALSE;
    T* object = call.Find<T>(handle);
    if (!object) return FALSE;
    action(*object);
    return TRUE;
}

// The whole of a function that closes a handle of one kind.
template <class T>
BOOL CloseHandleOf(Function& function, HANDLE handle)
{
    Call call(function);
    if (call.Fails() || !call.Find<T>(handle)) return FALSE;
    call.machine.handles.Close(handle);
    return TRUE;
}

}  // namespace virtual_pc
