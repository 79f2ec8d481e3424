// Looks into the running service as a debugger does: through the symbols of its image.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/process.h"

inline constexpr const wchar_t* kServiceName = L"HOLVService";
// Where the service writes its log, on the PC's disk.
inline constexpr const wchar_t* kServiceLogFile = LR"(C:\ProgramData\Orbeq\Holv\HOLVLog.txt)";

// "HOLV_ACTIVE" and so on; "" for a number that is no state.
std::wstring_view StateNameOf(std::int32_t state);
std::optional<std::int32_t> StateOf(std::string_view name);

// The number of an event or timer by its name; nothing for another word.
std::optional<int> SlotOf(std::string_view name);
const std::vector<std::string_view>& SlotNames();

// Adds the service to the service manager's database, unless it is there, starts it, and returns
// its process.
virtual_pc::Process& StartAsService(virtual_pc::Machine& pc, const virtual_pc::Image& image);

class ServiceView
{
public:
    // Follows the runs of the service that the machine loads from now on. Effect "state" {from, to,
    // hours_begin, hours_end} is recorded for each change of its state; the do-not-disturb hours
    // are in minutes since midnight.
    explicit ServiceView(virtual_pc::Machine& pc);

    // The process of the running service; null when none runs.
    virtual_pc::Process* service() const;
    // Its state; nothing when no service runs.
    std::optional<std::int32_t> state() const;

    // Signals one of the service's events, or makes one of its timers due. False when there is no
    // such handle.
    bool Raise(int slot);

    // Sets the mark of an attended wake in the service, with which it refuses never-sleep mode.
    // False when no service runs.
    bool SetOverride(bool on);

    // The address of one of the running service's symbols; null for none.
    void* Symbol(const char* name) const;

private:
    // One of the service's settings; -1 for none.
    std::int64_t MinutesOf(const char* setting) const;

    virtual_pc::Machine& m_pc;
    virtual_pc::Process* m_service = nullptr;
};
