#include "pc/trace.h"
#include "platform/virtual/base/text.h"

#include <algorithm>
#include <nlohmann/json.hpp>

using namespace virtual_pc;

namespace {

nlohmann::ordered_json ToJson(const Value& value)
{
    return std::visit(
        [](const auto& v) -> nlohmann::ordered_json {
            if constexpr (std::is_same_v<std::decay_t<decltype(v)>, std::wstring>) {
                return ToUtf8(v);
            } else {
                return v;
            }
        },
        value);
}

}  // namespace

const TraceKinds& AllTraceKinds()
{
    static const TraceKinds kinds = {
        "away mode",    "client call",    "client event",    "clock",
        "com security", "console",        "debug",           "device request",
        "display",      "endpoint",       "event",           "message box",
        "mute",         "plan activated", "plan written",    "power source",
        "power switch", "presence",       "process",         "registry",
        "request",      "service",        "service control", "service status",
        "session",      "signal",         "sleep",           "sound notice",
        "state",        "timer",          "volume",          "write",
    };
    return kinds;
}

std::optional<TraceKinds> ReadTraceKinds(std::string_view list)
{
    TraceKinds kinds;
    for (std::size_t from = 0; from <= list.size();) {
        const std::size_t to = std::min(list.find(',', from), list.size());
        const std::string_view kind = list.substr(from, to - from);
        if (!AllTraceKinds().contains(kind)) return std::nullopt;
        kinds.emplace(kind);
        from = to + 1;
    }
    return kinds;
}

void TraceTo(Machine& pc, std::ostream& out, const TraceKinds& only)
{
    pc.journal.Listen([&out, only](const Effect& effect) {
        if (!only.empty() && !only.contains(effect.kind)) return;
        nlohmann::ordered_json line;
        line["at"] = effect.at.count();
        line["clock"] = FormatCalendar(effect.clock);
        line["thread"] = effect.thread;
        line["kind"] = effect.kind;
        for (const auto& [name, value] : effect.fields) line[std::string(name)] = ToJson(value);
        out << line.dump() << "\n";
    });
}
