// What the story and the trace tell of a day. week_test.cpp has a whole story.

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include <nlohmann/json.hpp>

#include "tests/script_test.h"

namespace fs = std::filesystem;

namespace {

using StoryTest = ScriptTest;

// With its requests gone, a PC that its user has left may fall asleep on its way down.
TEST_F(StoryTest, APcThatFallsAsleepAsItShutsDownIsSwitchedOffByItsUser)
{
    EXPECT_EQ(Play("service install\nservice start\nuser works\nrun 2s\nrequests take 5s\n"
                   "user leaves\nsleep\nrun 5h\nslow RegSetValueExW 2s\npc shutdown\n"),
              0)
        << Errors();
    EXPECT_NE(story.str().find("  13:00:07  the display is on\n"
                               "  13:00:07  HOLVService: stopped\n"
                               "  13:00:07  the PC is off\n"),
              std::string::npos)
        << story.str();
}

// --- The trace ---

std::set<std::string> WordsIn(const std::string& cell)
{
    static const std::regex word("`([^`]+)`");
    std::set<std::string> words;
    for (std::sregex_iterator at(cell.begin(), cell.end(), word), end; at != end; ++at) {
        words.insert((*at)[1]);
    }
    return words;
}

// The fields of each kind, as docs/virtual_pc.md lists them.
std::map<std::string, std::set<std::string>> DocumentedFields()
{
    std::ifstream page(fs::path(HOLV_SOURCE_DIR) / "docs/virtual_pc.md");
    std::map<std::string, std::set<std::string>> fields;
    std::string line;
    while (std::getline(page, line) && line != "## The trace") continue;
    while (std::getline(page, line) && !line.starts_with("## ")) {
        if (!line.starts_with("| `")) continue;
        const std::size_t second = line.find('|', 1);
        const auto of_kind = WordsIn(line.substr(second, line.find('|', second + 1) - second));
        for (const std::string& kind : WordsIn(line.substr(0, second))) fields[kind] = of_kind;
    }
    return fields;
}

TEST_F(StoryTest, ThePageTellsEveryKindAndFieldOfTheTrace)
{
    const auto documented = DocumentedFields();
    TraceKinds kinds;
    for (const auto& [kind, fields] : documented) kinds.insert(kind);
    EXPECT_EQ(kinds, AllTraceKinds());
    options.trace = m_folder / "trace";
    for (const char* scenario : {"first_day", "sleep_at_night", "companion", "on_battery"}) {
        const fs::path script =
            fs::path(HOLV_SOURCE_DIR) / "scenarios" / (std::string(scenario) + ".pc");
        ASSERT_EQ(PlayScripts({script}, options, story, errors), 0) << errors.str();
        std::ifstream trace(options.trace);
        for (std::string line; std::getline(trace, line);) {
            const auto effect = nlohmann::json::parse(line);
            const auto known = documented.find(effect["kind"]);
            ASSERT_NE(known, documented.end()) << line;
            for (const auto& [name, value] : effect.items()) {
                const bool of_all =
                    name == "at" || name == "clock" || name == "thread" || name == "kind";
                EXPECT_TRUE(of_all || known->second.contains(name)) << name << " of " << line;
            }
        }
    }
}

TEST_F(StoryTest, TheTracesFilterLeavesTheKindsAskedFor)
{
    EXPECT_EQ(ReadTraceKinds("state,plan activated"), (TraceKinds{"state", "plan activated"}));
    for (const char* wrong : {"", "state,", "states", "state, sleep"}) {
        EXPECT_FALSE(ReadTraceKinds(wrong)) << wrong;
    }
    options.trace = m_folder / "trace";
    options.trace_only = {"state", "display"};
    EXPECT_EQ(Play("service install\nservice start\nuser leaves\nrun 2h\n"), 0) << Errors();
    std::set<std::string> found;
    std::ifstream trace(options.trace);
    for (std::string line; std::getline(trace, line);) {
        found.insert(nlohmann::json::parse(line)["kind"]);
    }
    EXPECT_EQ(found, (std::set<std::string>{"state", "display"}));
}

}  // namespace
