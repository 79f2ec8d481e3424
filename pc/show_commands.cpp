// Showing what is so.

#include "pc/commands.h"

using namespace virtual_pc;

namespace {

void ShowClock(Stage& stage) { stage.out << FormatCalendar(stage.pc.clock()) << "\n"; }

void ShowState(Stage& stage)
{
    const std::optional<std::int32_t> state = stage.view.state();
    stage.out << (state ? ToUtf8(StateNameOf(*state)) : "the service does not run") << "\n";
}

void ShowLog(Stage& stage)
{
    // Each line ends with CR LF CR CR, or CR CR where it went through a pipe.
    for (const char c : stage.pc.disk.Read(kServiceLogFile).value_or("")) {
        if (c != '\r') stage.out << c;
    }
}

void ShowLogPath(Stage& stage)
{
    stage.out << "The log: " << stage.pc.disk.HostPath(kServiceLogFile).string() << "\n";
}

void ShowEvents(Stage& stage)
{
    static constexpr const char* kTypes[] = {"success", "error", "warning", "", "information"};
    for (const EventRecord& record : stage.pc.event_log.records()) {
        stage.out << FormatCalendar(record.clock) << "  "
                  << (record.type < 5 ? kTypes[record.type] : "?") << "  "
                  << ToUtf8(stage.pc.event_log.Text(record));
        if (!stage.pc.event_log.Text(record).ends_with(L'\n')) stage.out << "\n";
    }
}

void ShowHandles(Stage& stage)
{
    const Hold hold(stage.pc);
    for (const LeftOpen& open : stage.pc.handles.List()) {
        stage.out << open.kind << " " << ToUtf8(open.name) << "\n";
    }
}

void ShowThreads(Stage& stage)
{
    const Hold hold(stage.pc);
    stage.out << stage.pc.scheduler.Report();
}

Action ShowKey(const ScriptLine& line, const Arguments& a)
{
    return [key = KeyOf(line, a[0])](Stage& stage) {
        const Hold hold(stage.pc);
        const auto node = stage.pc.registry.FindKey(Registry::Parse(key));
        if (!node) {
            stage.out << "there is no " << ToUtf8(key) << "\n";
            return;
        }
        for (const auto& [name, child] : node->keys) stage.out << "[" << ToUtf8(name) << "]\n";
        for (const auto& [name, value] : node->values) {
            const std::optional<DWORD> number = stage.pc.registry.GetDword(key, name);
            stage.out << (name.empty() ? "@" : ToUtf8(name)) << " = "
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
        {"show handles", "what is open", Show<ShowHandles>},
        {"show threads", "who waits for what", Show<ShowThreads>},
    };
}
