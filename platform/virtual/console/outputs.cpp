#include "platform/virtual/console/outputs.h"

#include <algorithm>

#include "platform/virtual/base/text.h"
#include "platform/virtual/core/journal.h"
#include "platform/virtual/core/machine.h"

namespace virtual_pc {

// Effect "debug": `text`, as one call gave it to the debugger.
void Outputs::Debug(DWORD thread, std::wstring_view text)
{
    const Hold hold(m_machine);
    m_debug.push_back({m_machine.now(), thread, std::wstring(text)});
    if (m_debug.size() > kDebugKept) m_debug.pop_front();
    if (m_machine.journal.Listened("debug")) {
        m_machine.journal.Record("debug", {{"text", std::wstring(text)}});
    }
}

// Effect "console": `text`, as one call printed it.
void Outputs::Console(std::string_view bytes)
{
    const Hold hold(m_machine);
    m_console += bytes;
    if (m_machine.journal.Listened("console")) {
        m_machine.journal.Record("console", {{"text", FromUtf8(bytes)}});
    }
}

// Effect "message box": its `caption` and `text`.
void Outputs::MessageBox(std::wstring_view caption, std::wstring_view text)
{
    const Hold hold(m_machine);
    m_message_boxes.push_back(std::wstring(caption) + L": " + std::wstring(text));
    m_machine.journal.Record("message box",
                             {{"caption", std::wstring(caption)}, {"text", std::wstring(text)}});
}

bool Outputs::DebugSaid(std::wstring_view text) const
{
    const Hold hold(m_machine);
    return std::ranges::any_of(
        m_debug, [&](const DebugLine& line) { return line.text.find(text) != std::wstring::npos; });
}

}  // namespace virtual_pc
