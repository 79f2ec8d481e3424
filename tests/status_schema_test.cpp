// What "holvctl status --json" prints in every scenario, against the schema that its users are
// given.

#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "pc/player.h"
#include "tests/schema.h"
#include "tests/virtual_pc_test.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

const fs::path kSource = HOLV_SOURCE_DIR;

// Asks for the status after a line of a script.
json StatusOf(Player& player, const ScriptLine& line, std::ostringstream& out)
{
    out.str("");
    player.Play(ReadLine("ctl \"status --json\"", {}, 1));
    const std::string said = out.str();
    const std::size_t begin = said.find("{\"schema\"");
    json status =
        begin == said.npos
            ? json()
            : json::parse(said.substr(begin, said.find('\n', begin) - begin), nullptr, false);
    EXPECT_TRUE(status.is_object()) << line.Place() << ": " << said;
    return status;
}

// Whether the line's expectation holds. Asking takes the PC's time, too, so that a script's own
// need not hold here; ScenarioTest holds them.
bool Holds(Player& player, const ScriptLine& line)
{
    try {
        player.Play(line);
        return true;
    } catch (const ExpectationFailed&) {
        return false;
    }
}

// Plays a script, and asks for the status after each time that passes and where the script or a
// client of its asks something, unless the PC sleeps, when no program runs.
std::vector<json> StatusesOf(const fs::path& script)
{
    const PlayOptions options{
        .machine = {.free = kRunFree}, .image = HOLV_IMAGE, .resources = kSource / "resources"};
    std::ostringstream out;
    Losses losses;
    Player player(options, out, losses);
    std::vector<json> statuses;
    for (const ScriptLine& line : ReadScript(script)) {
        const std::string& word = line.words[0];
        const bool asks = word == "run" || word == "ctl" || word == "client";
        if (!Holds(player, line) || !asks) continue;
        if (!Holds(player, ReadLine("expect asleep", {}, 1))) {
            statuses.push_back(StatusOf(player, line, out));
        }
    }
    return statuses;
}

TEST(StatusSchemaTest, EachStatusOfEachScenarioIsAsTheSchemaSays)
{
    const Schema schema("status.schema.json");
    std::set<std::string> states, reasons;
    std::size_t asked = 0;
    for (const fs::path& folder : {kSource / "scenarios", kSource / "scenarios/led_back"}) {
        for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
            if (entry.path().extension() != ".pc") continue;
            SCOPED_TRACE(entry.path());
            const std::vector<json> statuses = StatusesOf(entry.path());
            EXPECT_FALSE(statuses.empty());
            for (const json& status : statuses) {
                ASSERT_EQ(schema.Wrong(status), "") << entry.path() << ": " << status.dump();
                ++asked;
                states.insert(status.value("state", ""));
                reasons.insert(status.value("reason", ""));
            }
        }
    }
    states.erase("");
    reasons.erase("");
    EXPECT_EQ(states.size(), 6u) << testing::PrintToString(states);
    EXPECT_GE(asked, 50u);
    EXPECT_EQ(reasons.size(), 9u) << testing::PrintToString(reasons);
    json broken = json::parse(R"({"schema":1,"service":"asleep","now":3,"why":"","holders":null})");
    EXPECT_EQ(schema.Wrong(broken),
              "it lacks \"battery\"\nit.now is a number\nit.service is \"asleep\"\n");
}

}  // namespace
