#include "platform/virtual/disk/pipe.h"

#include <algorithm>
#include <utility>

#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/thread.h"
#include "platform/virtual/core/waitable.h"

namespace virtual_pc {
namespace {

class Changed final : public Waitable
{
public:
    Changed() : Waitable(Reset::automatic) {}
    std::string_view Kind() const override { return "change of a pipe's reader"; }
};

constexpr auto kSecond = static_cast<std::uint64_t>(Duration(std::chrono::seconds{1}).count());

}  // namespace

PipeListener::PipeListener(std::wstring name, std::wstring owner)
    : m_name(std::move(name)), m_owner(std::move(owner)), m_changed(std::make_shared<Changed>())
{
}

std::uint64_t PipeListener::Unread(Instant now) const
{
    if (!m_bytes_per_second) return 0;
    const auto elapsed = static_cast<std::uint64_t>((now - m_since).count());
    const std::uint64_t read =
        elapsed / kSecond * *m_bytes_per_second + elapsed % kSecond * *m_bytes_per_second / kSecond;
    return m_unread - std::min(m_unread, read);
}

void PipeListener::ReadAt(Machine& machine, std::optional<std::uint64_t> bytes_per_second)
{
    const Hold hold(machine);
    m_unread = Unread(machine.now());
    m_since = machine.now();
    m_bytes_per_second = bytes_per_second;
    m_changed->Signal();
}

void PipeListener::HangUp()
{
    Hold::Require();
    m_listening = false;
    m_changed->Signal();
}

std::string_view PipeListener::Fitting(Instant now, std::string_view bytes) const
{
    if (!m_bytes_per_second) return bytes;
    return bytes.substr(0, buffer - std::min<std::uint64_t>(buffer, Unread(now)));
}

void PipeListener::Take(Instant now, std::string_view bytes)
{
    m_unread = Unread(now) + bytes.size();
    m_since = now;
    heard += bytes;
}

std::size_t PipeListener::WriteAtOnce(Machine& machine, std::string_view bytes)
{
    Hold::Require();
    const std::string_view fitting = Fitting(machine.now(), bytes);
    if (takes_messages && fitting.size() < bytes.size()) return 0;
    Take(machine.now(), fitting);
    return fitting.size();
}

DWORD PipeListener::Write(Machine& machine, Thread& self, std::string_view bytes)
{
    while (!bytes.empty()) {
        if (!m_listening) return ERROR_NO_DATA;
        if (const std::string_view fitting = Fitting(machine.now(), bytes); !fitting.empty()) {
            Take(machine.now(), fitting);
            bytes.remove_prefix(fitting.size());
            continue;
        }
        // Wakes when as much is read as is left to write, or fits.
        const std::uint64_t wanted = std::min(bytes.size(), buffer);
        Instant deadline = kNever;
        if (const std::uint64_t pace = m_bytes_per_second.value_or(0)) {
            deadline = machine.now() +
                       Duration(static_cast<std::int64_t>((wanted * kSecond + pace - 1) / pace));
        }
        Waitable::WaitFor(machine, self, {m_changed}, false, deadline);
        if (self.ends) return ERROR_NO_DATA;
    }
    return NO_ERROR;
}

}  // namespace virtual_pc
