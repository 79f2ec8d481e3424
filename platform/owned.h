// One owner type for each kind of handle, reference and memory that the platform hands out, so that
// no path can forget to close it.
#pragma once

#include <cstdint>
#include <utility>

#include "platform/automation.h"
#include "platform/command.h"
#include "platform/device.h"
#include "platform/eventlog.h"
#include "platform/file.h"
#include "platform/kernel.h"
#include "platform/module.h"
#include "platform/registry.h"
#include "platform/rpc.h"
#include "platform/service.h"
#include "platform/session.h"

// Owns a T, a pointer or handle, and releases it with `Close`. `none` is the value that stands for
// an empty owner: it is never closed.
template <class T, auto Close, std::intptr_t none = 0>
class Owned
{
public:
    Owned() = default;
    explicit Owned(T value) : m_value(value) {}
    Owned(Owned&& other) noexcept : m_value(other.Detach()) {}
    Owned& operator=(Owned&& other) noexcept
    {
        if (this != &other) Reset(other.Detach());
        return *this;
    }
    ~Owned() { Reset(); }

    T Get() const { return m_value; }
    explicit operator bool() const { return m_value != None(); }

    // Releases what it owns and owns `value` from now on.
    void Reset(T value = None())
    {
        if (m_value != None()) Close(m_value);
        m_value = value;
    }

    // Empties the owner without releasing; the caller now has to release the result.
    T Detach() { return std::exchange(m_value, None()); }

    // Empties the owner and returns the address for a platform function's out parameter.
    T* Receive()
    {
        Reset();
        return &m_value;
    }

private:
    static T None() { return reinterpret_cast<T>(none); }

    T m_value = None();
};

inline constexpr std::intptr_t kInvalidHandleValue = -1;  // INVALID_HANDLE_VALUE

// Events, timers, threads, processes, tokens: functions that create them return null on failure.
using OwnedHandle = Owned<HANDLE, CloseHandle>;
// Files, pipes, devices, power requests: INVALID_HANDLE_VALUE on failure.
using OwnedFile = Owned<HANDLE, CloseHandle, kInvalidHandleValue>;
using OwnedDeviceInfoSet = Owned<HDEVINFO, SetupDiDestroyDeviceInfoList, kInvalidHandleValue>;
using OwnedKey = Owned<HKEY, RegCloseKey>;
using OwnedServiceHandle = Owned<SC_HANDLE, CloseServiceHandle>;  // also the service manager
using OwnedPowerNotification = Owned<HPOWERNOTIFY, UnregisterPowerSettingNotification>;
using OwnedLibrary = Owned<HMODULE, FreeLibrary>;
using OwnedEventSource = Owned<HANDLE, DeregisterEventSource>;
using OwnedEnvironment = Owned<LPVOID, DestroyEnvironmentBlock>;
using OwnedCommandOutput = Owned<std::FILE*, _pclose>;
using OwnedTaskString = Owned<PWSTR, CoTaskMemFree>;  // text from the shell and COM
using OwnedAutomationString = Owned<BSTR, SysFreeString>;

inline void FreeRpcString(RPC_WSTR text) { RpcStringFreeW(&text); }
using OwnedRpcString = Owned<RPC_WSTR, FreeRpcString>;  // a GUID's text

template <class Interface>
void ReleaseReference(Interface* object)
{
    object->Release();
}
template <class Interface>
using OwnedInterface = Owned<Interface*, ReleaseReference<Interface>>;
