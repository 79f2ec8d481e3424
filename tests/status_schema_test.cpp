// What "holvctl status --json" prints in every scenario, against the schema that its users are
// given.

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "pc/player.h"
#include "tests/virtual_pc_test.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

const fs::path kSource = HOLV_SOURCE_DIR;

// The part of JSON Schema that docs/status.schema.json uses.
class Schema
{
public:
    explicit Schema(json root) : m_root(std::move(root)) {}

    // What is wrong with the value, a line each.
    std::string Wrong(const json& value) const
    {
        std::string wrong;
        Check(value, m_root, "it", wrong);
        return wrong;
    }

private:
    static void Add(std::string& wrong, std::initializer_list<std::string_view> parts)
    {
        for (const std::string_view part : parts) wrong += part;
        wrong += "\n";
    }

    static bool IsOf(const json& value, const std::string& type)
    {
        return type == "integer" ? value.is_number_integer() : value.type_name() == type;
    }

    void Check(const json& value, const json& schema, const std::string& path,
               std::string& wrong) const
    {
        if (schema.contains("$ref")) {
            const auto reference = schema["$ref"].get<std::string>().substr(1);
            return Check(value, m_root.at(json::json_pointer(reference)), path, wrong);
        }
        if (schema.contains("enum")) {
            const json& known = schema["enum"];
            if (std::ranges::find(known, value) == known.end()) {
                wrong += path + " is " + value.dump() + "\n";
            }
            return;
        }
        const json types = schema["type"].is_array() ? schema["type"] : json{schema["type"]};
        if (std::ranges::none_of(types, [&](const json& type) { return IsOf(value, type); })) {
            wrong += path + " is a " + value.type_name() + "\n";
        } else if (value.is_array()) {
            for (const json& element : value) Check(element, schema["items"], path + "[]", wrong);
        } else if (value.is_object()) {
            CheckMembers(value, schema, path, wrong);
        }
    }

    void CheckMembers(const json& value, const json& schema, const std::string& path,
                      std::string& wrong) const
    {
        for (const auto& name : schema["required"]) {
            if (!value.contains(name)) Add(wrong, {path, " lacks ", name.dump()});
        }
        for (const auto& [name, member] : value.items()) {
            if (!schema["properties"].contains(name)) {
                Add(wrong, {path, " has \"", name, "\""});
            } else {
                std::string place = path;
                place.append(".").append(name);
                Check(member, schema["properties"][name], place, wrong);
            }
        }
    }

    const json m_root;
};

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
    std::ifstream file(kSource / "docs/status.schema.json");
    const Schema schema(json::parse(file));
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
