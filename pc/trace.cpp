#include "pc/trace.h"
#include "platform/virtual/base/text.h"

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

void TraceTo(Machine& pc, std::ostream& out)
{
    pc.journal.Listen([&out](const Effect& effect) {
        nlohmann::ordered_json line;
        line["at"] = effect.at.count();
        line["clock"] = FormatCalendar(effect.clock);
        line["thread"] = effect.thread;
        line["kind"] = effect.kind;
        for (const auto& [name, value] : effect.fields) line[std::string(name)] = ToJson(value);
        out << line.dump() << "\n";
    });
}
