#include "storm/outcome.h"

#include <nlohmann/json.hpp>

using nlohmann::json;
using virtual_pc::Duration;

namespace {

json JsonOf(const Finding& finding)
{
    return {{"promise", finding.promise},     {"object", finding.object},
            {"promised", finding.promised},   {"is", finding.is},
            {"since", finding.since.count()}, {"at", finding.at.count()},
            {"clock", finding.clock}};
}

Finding FindingOf(const json& from)
{
    return {from.at("promise"),
            from.at("object"),
            from.at("promised"),
            from.at("is"),
            Duration{from.at("since").get<std::int64_t>()},
            Duration{from.at("at").get<std::int64_t>()},
            from.at("clock")};
}

}  // namespace

std::string ToJson(const Outcome& outcome)
{
    json to = {{"gaps", outcome.gaps},
               {"lived", outcome.lived.count()},
               {"deeds", outcome.deeds},
               {"due", outcome.due},
               {"situations", outcome.situations},
               {"met", outcome.met},
               {"script", outcome.script},
               {"points", outcome.points},
               {"at_once", outcome.points_at_once}};
    if (outcome.finding) to["finding"] = JsonOf(*outcome.finding);
    return to.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::optional<Outcome> OutcomeOf(const std::string& text)
{
    try {
        const json from = json::parse(text);
        Outcome outcome;
        outcome.gaps = from.at("gaps").get<Counts>();
        outcome.lived = Duration{from.at("lived").get<std::int64_t>()};
        outcome.deeds = from.at("deeds");
        outcome.due = from.at("due");
        outcome.situations = from.at("situations").get<Counts>();
        outcome.met = from.at("met").get<Counts>();
        outcome.points = from.at("points").get<std::vector<std::size_t>>();
        outcome.points_at_once = from.at("at_once");
        outcome.script = from.at("script").get<std::vector<std::string>>();
        if (from.contains("finding")) outcome.finding = FindingOf(from.at("finding"));
        return outcome;
    } catch (const json::exception&) {
        return std::nullopt;
    }
}
