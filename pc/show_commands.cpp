// Commands that print current values.

#include "pc/commands.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/eventlog/event_log.h"
#include "platform/virtual/registry/registry.h"

using namespace virtual_pc;

namespace {

void ShowClock(ScriptContext& context)
{
    context.out << FormatCalendar(context.pc.clock()) << "\n";
}

void ShowState(ScriptContext& context)
{
    const std::optional<std::int32_t> state = context.view.state();
    context.out << (state ? ToUtf8(StateNameOf(*state)) : "the service does not run") << "\n";
}

void ShowLog(ScriptContext& context)
{
    // Each line ends with CR LF CR CR, or CR CR where it went through a pipe.
    for (const char c : context.pc.disk.Read(kServiceLogFile).value_or("")) {
        if (c != '\r') context.out << c;
    }
}

void ShowLogPath(ScriptContext& context)
{
    context.out << "The log: " << context.pc.disk.HostPath(kServiceLogFile) << "\n";
}

void ShowEvents(ScriptContext& context)
{
    static constexpr const char* kTypes[] = {"success", "error", "warning", "", "information"};
    for (const EventRecord& record : context.pc.event_log.records()) {
        context.out << FormatCalendar(record.clock) << "  "
                    << (record.type < 5 ? kTypes[record.type] : "?") << "  "
                    << ToUtf8(context.pc.event_log.Text(record));
        if (!context.pc.event_log.Text(record).ends_with(L'\n')) context.out << "\n";
    }
}

void ShowHandles(ScriptContext& context)
{
    const Hold hold(context.pc);
    for (const LeftOpen& open : context.pc.handles.List()) {
        context.out << open.kind << " " << ToUtf8(open.name) << "\n";
    }
}

void ShowThreads(ScriptContext& context)
{
    const Hold hold(context.pc);
    context.out << context.pc.scheduler.Report();
}

Action ShowKey(const ScriptLine& line, const Arguments& a)
{
    return [key = KeyOf(line, a[0])](ScriptContext& context) {
        const Hold hold(context.pc);
        const auto node = context.pc.registry.FindKey(Registry::Parse(key));
        if (!node) {
            context.out << "there is no " << ToUtf8(key) << "\n";
            return;
        }
        for (const auto& [name, child] : node->keys) context.out << "[" << ToUtf8(name) << "]\n";
        for (const auto& [name, value] : node->values) {
            const std::optional<DWORD> number = context.pc.registry.GetDword(key, name);
            context.out << (name.empty() ? "@" : ToUtf8(name)) << " = "
                        << (number ? std::to_string(*number) : ToUtf8(value.Text())) << "\n";
        }
    };
}

}  // namespace

std::vector<Command> ShowCommands()
{
    return {
        {"show clock", "the PC's clock", Show<ShowClock>},
        {"show state", "the service's state", Show<ShowState>},
        {"show log", "the service's log file", Show<ShowLog>},
        {"show log path", "where the log file lies on the host", Show<ShowLogPath>},
        {"show events", "the event log, as the viewer shows it", Show<ShowEvents>},
        {"show reg KEY", "a key's subkeys and values", ShowKey},
        {"show handles", "the open handles", Show<ShowHandles>},
        {"show threads", "what each thread waits for", Show<ShowThreads>},
    };
}
