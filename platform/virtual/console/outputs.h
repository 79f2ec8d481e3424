// Keeps what processes print, show in message boxes and send to the debugger.
#pragma once

#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "platform/base.h"
#include "platform/virtual/base/time.h"

namespace virtual_pc {

class Machine;

struct DebugLine
{
    Instant at;
    DWORD thread;
    std::wstring text;
};

class Outputs
{
public:
    explicit Outputs(Machine& machine) : m_machine(machine) {}

    // For the platform functions.
    void Debug(DWORD thread, std::wstring_view text);
    void Console(std::string_view bytes);
    void MessageBox(std::wstring_view caption, std::wstring_view text);

    // The last kDebugKept lines.
    const std::deque<DebugLine>& debug() const { return m_debug; }
    // Whether a debugger line contains `text`.
    bool DebugSaid(std::wstring_view text) const;
    // "caption: text" of each message box.
    const std::vector<std::wstring>& message_boxes() const { return m_message_boxes; }
    // Standard output of every process, UTF-8.
    const std::string& console() const { return m_console; }

    static constexpr std::size_t kDebugKept = 100'000;

private:
    Machine& m_machine;
    std::deque<DebugLine> m_debug;
    std::string m_console;
    std::vector<std::wstring> m_message_boxes;
};

}  // namespace virtual_pc
