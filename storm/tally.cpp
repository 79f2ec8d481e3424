#include "storm/tally.h"

#include <algorithm>
#include <fstream>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

using nlohmann::json;

namespace {

void AddUp(Counts& to, const Counts& from)
{
    for (const auto& [name, count] : from) to[name] += count;
}

void Join(Found& to, const Found& from)
{
    const std::uint64_t lives = to.lives + from.lives;
    if (to.lives == 0 || (to.script.empty() && !from.script.empty()) ||
        (to.script.empty() == from.script.empty() && from.deeds < to.deeds)) {
        to = from;
    }
    to.lives = lives;
}

json JsonOfFound(const Found& found)
{
    const Finding& finding = found.finding;
    return {{"promise", finding.promise},
            {"object", finding.object},
            {"promised", finding.promised},
            {"is", finding.is},
            {"since", finding.since.count()},
            {"at", finding.at.count()},
            {"clock", finding.clock},
            {"seed", found.seed},
            {"days", found.days},
            {"deeds", found.deeds},
            {"lives", found.lives},
            {"script", found.script},
            {"repeat", found.repeat}};
}

Found FoundOf(const json& from)
{
    Found found;
    Finding& finding = found.finding;
    from.at("promise").get_to(finding.promise);
    from.at("object").get_to(finding.object);
    from.at("promised").get_to(finding.promised);
    from.at("is").get_to(finding.is);
    from.at("clock").get_to(finding.clock);
    finding.since = virtual_pc::Instant{from.at("since").get<std::int64_t>()};
    finding.at = virtual_pc::Instant{from.at("at").get<std::int64_t>()};
    from.at("seed").get_to(found.seed);
    from.at("days").get_to(found.days);
    from.at("deeds").get_to(found.deeds);
    from.at("lives").get_to(found.lives);
    from.at("script").get_to(found.script);
    from.at("repeat").get_to(found.repeat);
    return found;
}

std::string SpanOf(virtual_pc::Duration span)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(span).count();
    std::ostringstream text;
    if (seconds >= 3600) text << seconds / 3600 << " h ";
    if (seconds >= 60) text << seconds / 60 % 60 << " min ";
    text << seconds % 60 << " s";
    return text.str();
}

void PrintFound(const Found& found, std::ostream& out)
{
    const Finding& finding = found.finding;
    out << "\nfinding, in " << found.lives << (found.lives == 1 ? " life: " : " lives: ")
        << finding.promise << "\n  " << finding.object;
    if (!finding.promised.empty()) out << " should be " << finding.promised << ", but";
    out << " is " << finding.is << ", at " << finding.clock << ", for "
        << SpanOf(finding.at - finding.since) << "\n  seed " << found.seed
        << "; repeat: " << found.repeat << "\n";
    for (const std::string& line : found.script) out << "    " << line << "\n";
}

}  // namespace

void Tally::Add(std::uint64_t seed, int asked_days, const Outcome& outcome)
{
    ++lives;
    if (outcome.gaps.empty() && !outcome.finding) ++lives_without_gap;
    deeds += outcome.deeds;
    days += std::chrono::duration<double, std::ratio<86400>>(outcome.lived).count();
    AddUp(gaps, outcome.gaps);
    AddUp(situations, outcome.situations);
    AddUp(met, outcome.met);
    if (!outcome.finding) return;
    Found found{*outcome.finding, seed, outcome.deeds, asked_days, 1, {}, {}};
    found.repeat = "holvpc storm --life " + std::to_string(seed);
    if (asked_days > 0) found.repeat += " --days " + std::to_string(asked_days);
    Join(findings[outcome.finding->Key()], found);
}

void Tally::Add(const Tally& other)
{
    lives += other.lives;
    lives_without_gap += other.lives_without_gap;
    deeds += other.deeds;
    days += other.days;
    core_seconds += other.core_seconds;
    AddUp(gaps, other.gaps);
    AddUp(situations, other.situations);
    AddUp(met, other.met);
    for (const auto& [key, found] : other.findings) Join(findings[key], found);
}

std::string Tally::Json() const
{
    json all = {{"lives", lives},
                {"lives_without_gap", lives_without_gap},
                {"deeds", deeds},
                {"days", days},
                {"core_seconds", core_seconds},
                {"gaps", gaps},
                {"situations", situations},
                {"met", met}};
    all["findings"] = json::array();
    for (const auto& [key, found] : findings) all["findings"].push_back(JsonOfFound(found));
    return all.dump(1, ' ', false, json::error_handler_t::replace);
}

Tally Tally::Read(const std::filesystem::path& file)
{
    std::ifstream stream(file);
    try {
        const json all = json::parse(stream);
        Tally tally;
        all.at("lives").get_to(tally.lives);
        all.at("lives_without_gap").get_to(tally.lives_without_gap);
        all.at("deeds").get_to(tally.deeds);
        all.at("days").get_to(tally.days);
        all.at("core_seconds").get_to(tally.core_seconds);
        all.at("gaps").get_to(tally.gaps);
        all.at("situations").get_to(tally.situations);
        all.at("met").get_to(tally.met);
        for (const json& one : all.at("findings")) {
            const Found found = FoundOf(one);
            tally.findings[found.finding.Key()] = found;
        }
        return tally;
    } catch (const json::exception& error) {
        throw std::runtime_error(file.string() + " is no storm's: " + error.what());
    }
}

void Print(const Tally& tally, bool details, std::ostream& out)
{
    if (!tally.gaps.empty()) out << "\nknown gaps met:\n";
    for (const auto& [name, count] : tally.gaps)
        out << std::setw(8) << count << "  " << name << "\n";

    constexpr std::uint64_t kFew = 10;
    const auto rare =
        std::ranges::count_if(tally.situations, [&](const auto& s) { return s.second < kFew; });
    out << "\nrare situations: " << tally.situations.size() << ", " << rare
        << " of them met fewer than " << kFew << " times\n";
    for (const auto& [name, count] : tally.situations) {
        if (details || count < kFew) out << std::setw(8) << count << "  " << name << "\n";
    }
    if (details) out << "\nstates and what met them:\n";
    for (const auto& [pair, count] : tally.met) {
        if (details) out << std::setw(8) << count << "  " << pair << "\n";
    }
    const double share = tally.lives ? 100.0 * static_cast<double>(tally.lives_without_gap) /
                                           static_cast<double>(tally.lives)
                                     : 0;
    out << "\n"
        << tally.lives << " lives, " << std::fixed << std::setprecision(0) << tally.days
        << " days, " << tally.deeds << " deeds; "
        << (tally.core_seconds > 0 ? tally.days / tally.core_seconds : 0)
        << " days a second and core; " << share
        << " % of the lives met neither a gap nor a finding; " << tally.findings.size()
        << " findings; " << tally.met.size() << " pairs of state and event\n";
    for (const auto& [key, found] : tally.findings) PrintFound(found, out);
}
