// What the story and the trace tell of a day.

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "tests/script_test.h"

namespace fs = std::filesystem;

namespace {

class StoryTest : public ScriptTest
{
protected:
    void PlayWell(const std::string& text) { EXPECT_EQ(Play(text), 0) << Errors(); }

    // The story has these lines, one right after the other, whatever stands before and after them.
    void ExpectTold(const std::vector<std::string>& lines) const
    {
        std::string text;
        for (const std::string& line : lines) text += "  " + line + "\n";
        EXPECT_NE(story.str().find(text), std::string::npos) << text << "is not in\n"
                                                             << story.str();
    }
    void ExpectNotTold(const std::string& words) const
    {
        EXPECT_EQ(story.str().find(words), std::string::npos) << story.str();
    }
};

const std::string kOneNight =
    "audio add Speakers render unmuted default\n"
    "reg set HKLM\\Software\\Orbeq\\Holv\\User MuteAudio dword 0\n"
    "device add ACPI\\QRX5071\\1\n"
    "service install\nservice start\n"
    "user leaves\nrun until 23:00\n";

TEST_F(StoryTest, ACauseIsToldBeforeItsEffects)
{
    if (kRunFree) return;  // the order of threads that run free is not the story's to promise
    PlayWell(kOneNight + "user works\nrun 1s\nplan set Balanced ac away-mode 0\nsleep\nrun 1s\n");
    ExpectTold({"08:00:00  normal use (S0_NORMAL, from HOLV_INIT)",
                "08:00:00  power request held: away, of HOLVService.exe",
                "08:00:00  power request held: system, of HOLVService.exe"});
    ExpectTold({"23:00:00  the user is there", "23:00:00  away mode ends",
                "23:00:00  the display is on", "23:00:00  normal use (S0_NORMAL, from HOLV_DND)"});
    ExpectTold({"23:00:01  the PC goes to sleep (the user)"});
}

TEST_F(StoryTest, APlansChangeBackAndForthIsOneLineAndTheHoursSayWhyTheyComeLate)
{
    if (kRunFree) return;
    PlayWell(kOneNight);
    ExpectTold(
        {"22:00:30  never-sleep mode, do not disturb (HOLV_DND, from HOLV_IDLE): "
         "the hours begin at 22:00, counted in whole minutes"});
    ExpectTold({"22:00:30  power plan: Balanced, and back to Power saver"});
    ExpectNotTold("power plan: Balanced\n");
    // Hours that begin in time need no reason, and other changes have none.
    PlayWell(
        "service install\nservice start\nrun 1s\nuser leaves\nsignal EVENT_ENTER_DND\n"
        "run 1s\nplan active \"High performance\"\nplan active Balanced\n");
    ExpectTold({"08:00:01  never-sleep mode, do not disturb (HOLV_DND, from S0_NORMAL)"});
    // What the user does one after the other is told one after the other.
    ExpectTold({"08:00:02  power plan: High performance"});
}

TEST_F(StoryTest, APcThatIsSwitchedOffIsNoCrash)
{
    const std::string start = "service install\nservice start\nprogram add C:\\A.exe\nrun 1s\n";
    PlayWell(start);
    ExpectTold({"08:00:01  the story ends, and the PC is switched off"});
    ExpectNotTold("killed");
    PlayWell(start + "power cut\nrun 1s\n");
    ExpectTold({"08:00:01  the power is cut, and the PC is off"});
    ExpectNotTold("killed");
    ExpectNotTold("released");
    ExpectNotTold("the story ends");
    PlayWell(start + "pc shutdown\n");
    if (kRunFree) {
        ExpectTold({"08:00:01  the PC shuts down"});
        ExpectTold({"08:00:01  HOLVService: stopping"});
    } else {
        ExpectTold({"08:00:01  the PC shuts down", "08:00:01  HOLVService: stopping"});
    }
    ExpectTold({"08:00:01  the PC is off"});
    ExpectNotTold("killed");
    // And a crash is one.
    PlayWell(start + "service kill\nrun 1s\n");
    ExpectTold({"08:00:01  HOLVService.exe is killed",
                "08:00:01  power request released: away, of HOLVService.exe"});
}

// With its requests gone, a PC that its user has left may fall asleep on its way down.
TEST_F(StoryTest, APcThatFallsAsleepAsItShutsDownIsSwitchedOffByItsUser)
{
    PlayWell(
        "service install\nservice start\nuser works\nrun 2s\nrequests take 5s\nuser leaves\n"
        "sleep\nrun 5h\nslow RegSetValueExW 2s\npc shutdown\n");
    ExpectTold({"13:00:07  the display is on", "13:00:07  HOLVService: stopped",
                "13:00:07  the PC is off"});
}

TEST_F(StoryTest, TheHolderOfARequestIsNamed)
{
    PlayWell(
        "program requires display \"C:\\Program Files\\Player\\Film.exe\"\n"
        "program requires display \"C:\\Program Files\\Player\\Film.exe\"\n"
        "driver requires system \"USB Modem\"\n"
        "program releases display \"C:\\Program Files\\Player\\Film.exe\"\n");
    EXPECT_EQ(story.str(),
              "Monday, 2026-03-02\n"
              "  08:00:00  power request held: display, of Film.exe\n"
              "  08:00:00  power request held: system, of USB Modem\n");
}

// --- The trace ---

// The fields of each kind, as docs/virtual_pc.md lists them.
std::map<std::string, std::set<std::string>> DocumentedFields()
{
    std::ifstream page(fs::path(HOLV_SOURCE_DIR) / "docs/virtual_pc.md");
    std::map<std::string, std::set<std::string>> fields;
    const auto words = [](const std::string& cell) {
        std::set<std::string> found;
        for (std::size_t from = 0; (from = cell.find('`', from)) != cell.npos;) {
            const std::size_t to = cell.find('`', from + 1);
            found.insert(cell.substr(from + 1, to - from - 1));
            from = to + 1;
        }
        return found;
    };
    std::string line;
    while (std::getline(page, line) && line != "## The trace") continue;
    while (std::getline(page, line) && !line.starts_with("## ")) {
        if (!line.starts_with("| `")) continue;
        std::istringstream cells(line.substr(1));
        std::string kinds;
        std::string of_kind;
        std::getline(cells, kinds, '|');
        std::getline(cells, of_kind, '|');
        for (const std::string& kind : words(kinds)) fields[kind] = words(of_kind);
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
    PlayWell(kOneNight);
    std::set<std::string> found;
    std::ifstream trace(options.trace);
    for (std::string line; std::getline(trace, line);) {
        found.insert(nlohmann::json::parse(line)["kind"]);
    }
    EXPECT_EQ(found, (std::set<std::string>{"state", "display"}));
}

}  // namespace
