// Everything the machine hands out, by handle.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/base.h"

namespace virtual_pc {

class Process;

class Waitable;

// Something that a handle stands for.
class Object
{
public:
    virtual ~Object() = default;

    // The kind in plain words ("event", "registry key") and, where it has one, its name or path.
    virtual std::string_view Kind() const = 0;
    virtual std::wstring Name() const { return {}; }

    // Called when a handle to it is closed, before the table drops its reference.
    virtual void Closed() {}

    // Null for what cannot be waited for. The event loop waits for many objects at a time: this is
    // cheaper than a cast.
    virtual Waitable* AsWaitable() { return nullptr; }
};

// An object that is open, or that a process left open when it ended.
struct LeftOpen
{
    std::string kind;
    std::wstring name;
    DWORD process;
};

// Handles are numbers that are never used twice in a machine's life, so that a handle used after
// its close is always noticed. All calls are made with the machine held.
class HandleTable
{
public:
    // The new handle belongs to `owner`, or to the driver when that is null.
    HANDLE Open(std::shared_ptr<Object> object, Process* owner);

    // The object, or null when the handle is not open.
    Object* Find(HANDLE handle) const;
    std::shared_ptr<Object> FindShared(HANDLE handle) const;

    // The open object of a kind that has this name; null when there is none.
    template <class T>
    std::shared_ptr<T> FindNamed(std::wstring_view name) const
    {
        for (const Entry& entry : m_open) {
            if (entry.object->Name() != name) continue;
            if (auto found = std::dynamic_pointer_cast<T>(entry.object)) return found;
        }
        return nullptr;
    }

    // The first open object of a kind that belongs to a process; null when there is none.
    template <class T>
    std::shared_ptr<T> FindOf(const Process* owner) const
    {
        for (const Entry& entry : m_open) {
            if (entry.owner != owner) continue;
            if (auto found = std::dynamic_pointer_cast<T>(entry.object)) return found;
        }
        return nullptr;
    }

    // False when the handle is not open.
    bool Close(HANDLE handle);

    // Whether a handle was handed out once and has been closed since.
    bool IsStale(HANDLE handle) const;

    // Closes what a process still has open, and returns a list of it. The objects are added to
    // `closed`, since code of the process may still call them while its image is unloaded.
    std::vector<LeftOpen> CloseAllOf(Process* owner, std::vector<std::shared_ptr<Object>>& closed);

    // The objects that are open now.
    std::vector<LeftOpen> List() const;

private:
    struct Entry
    {
        std::uintptr_t handle;
        std::shared_ptr<Object> object;
        Process* owner;
    };
    static constexpr std::uintptr_t kStep = 4;
    static constexpr std::uintptr_t kFirst = 0x100;

    std::vector<Entry>::const_iterator PlaceOf(HANDLE handle) const;

    // By handle. Few are open at a time, out of the millions of a long life.
    std::vector<Entry> m_open;
    std::uintptr_t m_next = kFirst;
};

}  // namespace virtual_pc
