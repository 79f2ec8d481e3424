// Named pipes that a script or a test listens on.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/base.h"
#include "platform/virtual/base/time.h"

namespace virtual_pc {

class Machine;
class Thread;
class Waitable;

// The listening end of a named pipe, opened by a script or a test to read what the service writes.
// It has one writer at a time: the next can connect once that has closed its end.
class PipeListener
{
public:
    explicit PipeListener(std::wstring name, std::wstring owner = L"SYSTEM");
    const std::wstring& name() const { return m_name; }
    // The user whose program listens.
    const std::wstring& owner() const { return m_owner; }
    // Everything written so far.
    std::string heard;
    // Whether a writer has the other end open.
    bool connected = false;
    // Whether the last writer that connected lets the listener act in its name.
    bool may_impersonate = false;

    // The pipe's capacity in bytes. A writer waits while it is full, unless it has asked not to
    // wait: then the pipe takes as many bytes as there is room for, but no part of a message.
    std::size_t buffer = 4096;
    bool takes_messages = false;
    // How many bytes a second are read, 0 for none; all at once unless set.
    void ReadAt(Machine& machine, std::optional<std::uint64_t> bytes_per_second);

    // False after HangUp.
    bool listening() const { return m_listening; }
    void HangUp();

    // Writes all bytes, and waits for room in between. ERROR_NO_DATA when nothing listens any more.
    // The caller holds the machine exactly once, as the wait releases it.
    DWORD Write(Machine& machine, Thread& self, std::string_view bytes);
    // Writes what there is room for, and returns how many bytes that was.
    std::size_t WriteAtOnce(Machine& machine, std::string_view bytes);

private:
    std::uint64_t Unread(Instant now) const;
    // The first of the bytes, as many as there is room for.
    std::string_view Fitting(Instant now, std::string_view bytes) const;
    void Take(Instant now, std::string_view bytes);

    const std::wstring m_name;
    const std::wstring m_owner;
    bool m_listening = true;
    std::optional<std::uint64_t> m_bytes_per_second;
    std::uint64_t m_unread = 0;  // at m_since
    Instant m_since{0};
    std::shared_ptr<Waitable> m_changed;  // signalled when the reader changes its pace or hangs up
};

}  // namespace virtual_pc
