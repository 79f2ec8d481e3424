// Owners: one type for each kind of thing that the platform hands out, so that a missing close
// cannot be written.
#pragma once

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

// Owns what a Traits describes: its Type, the value that stands for none, and how it is given back.
template <class Traits>
class Owned
{
public:
    using Type = typename Traits::Type;

    Owned() = default;
    explicit Owned(Type value) : m_value(value) {}
    Owned(Owned&& other) noexcept : m_value(std::exchange(other.m_value, Traits::None())) {}
    Owned& operator=(Owned&& other) noexcept
    {
        if (this != &other) Reset(std::exchange(other.m_value, Traits::None()));
        return *this;
    }
    ~Owned() { Reset(); }

    Type Get() const { return m_value; }
    explicit operator bool() const { return m_value != Traits::None(); }

    // Gives back what it holds and takes `value` instead.
    void Reset(Type value = Traits::None())
    {
        if (m_value != Traits::None()) Traits::Close(m_value);
        m_value = value;
    }

    // Lets go of what it holds, for the caller to give back.
    Type Detach() { return std::exchange(m_value, Traits::None()); }

    // Hands out the place for a platform function that returns the thing through a pointer.
    Type* Receive()
    {
        Reset();
        return &m_value;
    }

private:
    Type m_value = Traits::None();
};

struct HandleTraits
{
    using Type = HANDLE;
    static Type None() { return nullptr; }
    static void Close(Type handle) { CloseHandle(handle); }
};
using OwnedHandle = Owned<HandleTraits>;  // events, timers, threads, processes, tokens

struct FileTraits
{
    using Type = HANDLE;
    static Type None() { return INVALID_HANDLE_VALUE; }
    static void Close(Type handle) { CloseHandle(handle); }
};
using OwnedFile = Owned<FileTraits>;  // files, pipes, devices, power requests

struct KeyTraits
{
    using Type = HKEY;
    static Type None() { return nullptr; }
    static void Close(Type key) { RegCloseKey(key); }
};
using OwnedKey = Owned<KeyTraits>;

struct ServiceHandleTraits
{
    using Type = SC_HANDLE;
    static Type None() { return nullptr; }
    static void Close(Type handle) { CloseServiceHandle(handle); }
};
using OwnedServiceHandle = Owned<ServiceHandleTraits>;  // services and their manager

struct PowerNotificationTraits
{
    using Type = HPOWERNOTIFY;
    static Type None() { return nullptr; }
    static void Close(Type registration) { UnregisterPowerSettingNotification(registration); }
};
using OwnedPowerNotification = Owned<PowerNotificationTraits>;

struct LibraryTraits
{
    using Type = HMODULE;
    static Type None() { return nullptr; }
    static void Close(Type library) { FreeLibrary(library); }
};
using OwnedLibrary = Owned<LibraryTraits>;

struct EventSourceTraits
{
    using Type = HANDLE;
    static Type None() { return nullptr; }
    static void Close(Type source) { DeregisterEventSource(source); }
};
using OwnedEventSource = Owned<EventSourceTraits>;

struct TaskStringTraits
{
    using Type = PWSTR;
    static Type None() { return nullptr; }
    static void Close(Type text) { CoTaskMemFree(text); }
};
using OwnedTaskString = Owned<TaskStringTraits>;  // text from the shell and COM

struct RpcStringTraits
{
    using Type = RPC_WSTR;
    static Type None() { return nullptr; }
    static void Close(Type text) { RpcStringFreeW(&text); }
};
using OwnedRpcString = Owned<RpcStringTraits>;  // identifiers in string form

struct AutomationStringTraits
{
    using Type = BSTR;
    static Type None() { return nullptr; }
    static void Close(Type text) { SysFreeString(text); }
};
using OwnedAutomationString = Owned<AutomationStringTraits>;

template <class Interface>
struct InterfaceTraits
{
    using Type = Interface*;
    static Type None() { return nullptr; }
    static void Close(Type object) { object->Release(); }
};
template <class Interface>
using OwnedInterface = Owned<InterfaceTraits<Interface>>;  // references to component objects

struct EnvironmentTraits
{
    using Type = LPVOID;
    static Type None() { return nullptr; }
    static void Close(Type block) { DestroyEnvironmentBlock(block); }
};
using OwnedEnvironment = Owned<EnvironmentTraits>;

struct CommandOutputTraits
{
    using Type = std::FILE*;
    static Type None() { return nullptr; }
    static void Close(Type output) { _pclose(output); }
};
using OwnedCommandOutput = Owned<CommandOutputTraits>;

struct DeviceInfoSetTraits
{
    using Type = HDEVINFO;
    static Type None() { return INVALID_HANDLE_VALUE; }
    static void Close(Type set) { SetupDiDestroyDeviceInfoList(set); }
};
using OwnedDeviceInfoSet = Owned<DeviceInfoSetTraits>;
