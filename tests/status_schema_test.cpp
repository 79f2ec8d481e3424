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

// Plays a line of a script, and asks for the status after it.
json StatusAfter(Player& player, const ScriptLine& line, std::ostringstream& out)
{
    player.Play(line);
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

// Plays a script up to where the PC sleeps, when no program runs, and asks for the status after
// each time that passes.
std::vector<json> StatusesOf(const fs::path& script)
{
    PlayOptions options;
    options.machine.free = kRunFree;
    options.image = HOLV_IMAGE;
    options.resources = kSource / "resources";
    std::ostringstream out;
    Losses losses;
    Player player(options, out, losses);
    std::vector<json> statuses;
    try {
        for (const ScriptLine& line : ReadScript(script)) {
            if (line.words[0] == "run") {
                statuses.push_back(StatusAfter(player, line, out));
            } else {
                player.Play(line);
            }
        }
    } catch (const ExpectationFailed&) {
        // Asking takes the PC's time, too, so the script's own expectations need not hold here;
        // ScenarioTest holds them.
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
            for (const json& status : StatusesOf(entry.path())) {
                ASSERT_EQ(schema.Wrong(status), "") << entry.path() << ": " << status.dump();
                ++asked;
                states.insert(status.value("state", ""));
                reasons.insert(status.value("reason", ""));
            }
        }
    }
    EXPECT_GE(states.size(), 5u) << testing::PrintToString(states);
    EXPECT_GE(asked, 50u);
    EXPECT_GE(reasons.size(), 5u) << testing::PrintToString(reasons);
    json broken = json::parse(R"({"schema":1,"service":"asleep","now":3,"why":"","holders":null})");
    EXPECT_EQ(schema.Wrong(broken),
              "it lacks \"battery\"\nit.now is a number\nit.service is \"asleep\"\n");
}

}  // namespace
