#include "storm/gaps.h"

#include <fnmatch.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

#include "storm/deeds.h"

using namespace std::chrono_literals;

namespace {

std::vector<std::string> Parts(const std::string& text, char between)
{
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, between);) {
        const std::size_t from = part.find_first_not_of(' ');
        if (from == part.npos) continue;
        parts.push_back(part.substr(from, part.find_last_not_of(' ') - from + 1));
    }
    return parts;
}

void Read(Gap& gap, const std::string& word, const std::string& rest)
{
    if (word == "promise") {
        gap.promise = rest;
    } else if (word == "object") {
        gap.object = rest;
    } else if (word == "deeds") {
        gap.deeds = Parts(rest, ';');
    } else if (word == "hours") {
        gap.hours = std::stoi(rest);
    } else if (word == "reason") {
        gap.reason = rest;
    } else {
        throw std::runtime_error("\"" + word + "\" is no word of a gap");
    }
}

bool Like(const std::string& pattern, const std::string& text)
{
    return fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
}

}  // namespace

std::vector<Gap> ReadGaps(const std::filesystem::path& file)
{
    std::ifstream stream(file);
    if (!stream) throw std::runtime_error(file.string() + ": cannot be read");
    std::vector<Gap> gaps;
    int number = 0;
    for (std::string line; std::getline(stream, line);) {
        ++number;
        const std::vector<std::string> words = Parts(line, ' ');
        if (words.empty() || words[0][0] == '#') continue;
        const std::size_t from = line.find_first_not_of(' ', line.find(words[0]) + words[0].size());
        const std::string rest = from == line.npos ? "" : line.substr(from);
        try {
            if (words[0] == "gap") {
                gaps.emplace_back().name = rest;
                gaps.back().script = file.parent_path() / "gaps" / (rest + ".pc");
            } else {
                if (gaps.empty()) throw std::runtime_error("no gap is begun");
                Read(gaps.back(), words[0], rest);
            }
        } catch (const std::exception& error) {
            throw std::runtime_error(file.string() + ":" + std::to_string(number) + ": " +
                                     error.what());
        }
    }
    for (const Gap& gap : gaps) {
        if (!gap.promise.empty() && !gap.object.empty() && !gap.deeds.empty() &&
            !gap.reason.empty())
            continue;
        throw std::runtime_error(file.string() + ": gap " + gap.name +
                                 " lacks its promise, object, deeds or reason");
    }
    return gaps;
}

const Gap* Explains(const std::vector<Gap>& gaps, const Finding& finding,
                    const std::vector<Done>& done)
{
    for (const Gap& gap : gaps) {
        if (!Like(gap.promise, finding.promise) || !Like(gap.object, finding.object)) continue;
        std::size_t next = 0;
        for (const auto& [at, command] : done) {
            if (at < finding.since - 1h * gap.hours || at > finding.at) continue;
            if (next < gap.deeds.size() && Like(gap.deeds[next] + "*", command)) ++next;
        }
        if (next == gap.deeds.size()) return &gap;
    }
    return nullptr;
}

// --- Putting right ---

namespace {

// The words of an object: quotes hold a name together.
struct Named
{
    std::string kind;
    std::string rest;
};

Named NameOf(const std::string& object)
{
    const std::size_t blank = object.find(' ');
    if (blank == object.npos) return {object, ""};
    return {object.substr(0, blank), object.substr(blank + 1)};
}

}  // namespace

std::vector<std::string> PuttingRight(const Finding& finding)
{
    const Named named = NameOf(finding.object);
    if (finding.object == "active plan") return {"plan active " + Quoted(finding.promised)};
    if (named.kind == "plan") return {"plan set " + named.rest + " " + finding.promised};
    if (named.kind == "mute") {
        return {"audio " + std::string(finding.promised == "muted" ? "mute " : "unmute ") +
                Quoted(named.rest)};
    }
    return {};
}

std::string Expectation(const Finding& finding)
{
    const Named named = NameOf(finding.object);
    if (finding.object == "active plan") return "expect plan active " + Quoted(finding.promised);
    const std::string in_force = "in force ";
    if (finding.object.starts_with(in_force)) {
        return "expect in-force " + finding.object.substr(in_force.size()) + " " + finding.promised;
    }
    if (named.kind == "plan") return "expect plan " + named.rest + " " + finding.promised;
    if (named.kind == "mute") return "expect mute " + Quoted(named.rest) + " " + finding.promised;
    return {};
}
