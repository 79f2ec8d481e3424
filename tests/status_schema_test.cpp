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
            if (!value.contains(name)) wrong += path + " lacks " + name.dump() + "\n";
        }
        for (const auto& [name, member] : value.items()) {
            if (!schema["properties"].contains(name)) {
                wrong += path + " has \"" + name + "\"\n";
            } else {
                Check(member, schema["properties"][name], path + "." + name, wrong);
            }
        }
    }

    const json m_root;
};

// Plays a script, and asks for the status after each line that may have changed it.
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
    bool in_block = false;
    for (const ScriptLine& line : ReadScript(script)) {
        if (line.words[0] == "meanwhile") in_block = true;
        player.Play(line);
        if (line.words[0] == "}") in_block = false;
        if (in_block || line.words[0] != "run") continue;
        out.str("");
        player.Play(ReadLine("ctl \"status --json\"", {}, 1));
        std::string said = out.str();
        said.erase(0, said.find("{\"schema\""));
        said.erase(said.find('\n') + 1);
        statuses.push_back(json::parse(said, nullptr, false));
        EXPECT_FALSE(statuses.back().is_discarded()) << line.Place() << ": " << out.str();
    }
    return statuses;
}

TEST(StatusSchemaTest, EachStatusOfEachScenarioIsAsTheSchemaSays)
{
    std::ifstream file(kSource / "docs/status.schema.json");
    const Schema schema(json::parse(file));
    std::set<std::string> states, reasons;
    for (const fs::path& folder : {kSource / "scenarios", kSource / "scenarios/led_back"}) {
        for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
            if (entry.path().extension() != ".pc") continue;
            for (const json& status : StatusesOf(entry.path())) {
                ASSERT_EQ(schema.Wrong(status), "") << entry.path() << ": " << status.dump();
                states.insert(status.value("state", ""));
                reasons.insert(status.value("reason", ""));
            }
        }
    }
    EXPECT_GE(states.size(), 5u) << testing::PrintToString(states);
    EXPECT_GE(reasons.size(), 6u) << testing::PrintToString(reasons);
    json broken = json::parse(R"({"schema":1,"service":"asleep","now":3,"why":"","holders":null})");
    EXPECT_EQ(schema.Wrong(broken),
              "it lacks \"battery\"\nit.now is a number\nit.service is \"asleep\"\n");
}

}  // namespace
