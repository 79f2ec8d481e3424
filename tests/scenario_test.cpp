// The scenarios, each played as `holvpc run` plays it; what a seed promises of a whole run; and a
// walk through all of the service's states (tests/walk.pc), deed by deed, as
// tests/expected/walk.txt tells it. After a change that is meant, HOLV_KEEP_WALK=1 writes that file
// anew, and its difference is to be read.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <tuple>

#include "pc/player.h"
#include "tests/lines.h"
#include "tests/virtual_pc_test.h"

namespace fs = std::filesystem;

namespace {

PlayOptions Options(std::uint64_t seed = 0, const fs::path& trace = {})
{
    return {.machine = {.free = kRunFree, .seed = seed},
            .trace = trace,
            .image = HOLV_IMAGE,
            .resources = HOLV_SOURCE_DIR "/resources"};
}

const fs::path kScenarios = fs::path(HOLV_SOURCE_DIR) / "scenarios";

std::vector<std::string> Scenarios()
{
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(kScenarios)) {
        if (entry.path().extension() == ".pc") names.push_back(entry.path().stem().string());
    }
    return names;
}

// On every version of Windows that the service supports and that behaves differently.
class ScenarioTest : public ::testing::TestWithParam<std::tuple<std::string, std::string>>
{
};

TEST_P(ScenarioTest, GoesAsItSays)
{
    const auto& [scenario, version] = GetParam();
    PlayOptions options = Options();
    options.machine.os_version = *virtual_pc::ParseOsVersion(version);
    std::ostringstream story;
    std::ostringstream errors;
    const int status = PlayScripts({kScenarios / (scenario + ".pc")}, options, story, errors);
    EXPECT_EQ(status, 0) << errors.str() << story.str();
}

std::string NameOfCase(const ::testing::TestParamInfo<ScenarioTest::ParamType>& scenario)
{
    const auto& [name, version] = scenario.param;
    return name + "_on_" + (version == "8.1" ? "8_1" : version);
}

INSTANTIATE_TEST_SUITE_P(All, ScenarioTest,
                         ::testing::Combine(::testing::ValuesIn(Scenarios()),
                                            ::testing::Values("7", "8.1", "10", "11")),
                         NameOfCase);

std::string TraceOf(const fs::path& script, std::uint64_t seed)
{
    const fs::path file = fs::temp_directory_path() /
                          ("holv-trace-" + std::to_string(getpid()) + "-" + std::to_string(seed));
    PlayOptions options = Options(seed, file);
    options.machine.free = false;
    std::ostringstream story;
    std::ostringstream errors;
    EXPECT_EQ(PlayScripts({script}, options, story, errors), 0) << "seed " << seed << "\n"
                                                                << errors.str();
    std::ifstream stream(file, std::ios::binary);
    std::string trace(std::istreambuf_iterator<char>(stream), {});
    fs::remove(file);
    return trace;
}

TEST(TraceTest, ASeedGivesTheSameTraceOnAnUnkindPcToo)
{
    const fs::path script =
        fs::temp_directory_path() / ("holv-unkind-" + std::to_string(getpid()) + ".pc");
    std::ofstream(script) << "service install\n"
                             "run 2m\n"
                             "slow all\n"
                             "slow RegGetValueW 300ms rate 0.05\n"
                             "fault PowerWriteACValueIndex 5 rate 0.3\n"
                             "fault PowerWriteDCValueIndex 5 always on Balanced\n"
                             "fault PowerSetActiveScheme 5 done once\n"
                             "fault PowerSetRequest pretends once\n"
                             "fault SetMute 0x88890004 for 30m on Desk\n"
                             "notices late 300ms\nnotices doubled\nnotices merged\n"
                             "service kill at call 200\nservice start\nrun 1m\n"
                             "expect service stopped\nservice start\nrun 1m\n"
                             "meanwhile {\naudio add Desk render unmuted default\nuser leaves\n"
                             "signal EVENT_ENTER_ACTIVE\n}\nrun 2h\n"
                             "power cut\npc boot\nuser leaves\nrun 2h\n"
                             "power cut\npower cut at call 250\npc boot\nrun 1m\n"
                             "expect power off\npc boot\nrun 1h\n";
    std::set<std::string> traces;
    for (const std::uint64_t seed : {1, 2, 3}) {
        const std::string trace = TraceOf(script, seed);
        EXPECT_GT(trace.size(), 10'000u);
        EXPECT_EQ(TraceOf(script, seed), trace) << "seed " << seed;
        EXPECT_EQ(trace.find(HOLV_SOURCE_DIR), std::string::npos) << "a path of the host";
        traces.insert(trace);
    }
    EXPECT_EQ(traces.size(), 3u) << "the seeds draw the same";
    fs::remove(script);
}

// The text between `before` and `after`, or the line's end.
std::string Between(const std::string& line, const std::string& before, const std::string& after)
{
    const std::size_t from = line.find(before) + before.size();
    return line.substr(from, line.find(after, from) - from);
}

// What the programs do, by a trace: not what the PC does, and not the lines that a file or the
// event log gets besides. The deeds of one instant stand thread by thread, because nothing is
// promised of which thread comes first.
Lines DeedsOf(const std::string& trace)
{
    const std::regex backslash(R"(\\\\)");
    std::map<std::string, std::size_t> threads;
    std::map<std::pair<std::string, std::size_t>, Lines> deeds;
    std::istringstream lines(trace);
    for (std::string line; std::getline(lines, line);) {
        const std::string id = Between(line, R"("thread":)", ",");
        // The restore journal's bytes are left out.
        std::string text = Between(line, R"("kind":)", R"(,"type":3,)");
        if (id == "0" || text.starts_with(R"("write")") || text.starts_with(R"("event")")) continue;
        if (text.ends_with(R"(\n"})")) text.erase(text.size() - 4);
        text = std::regex_replace(text, backslash, "/");
        std::erase_if(text, [](char c) { return c == '"' || c == '{' || c == '}' || c == '\\'; });
        const std::size_t thread = threads.try_emplace(id, threads.size() + 1).first->second;
        deeds[{Between(line, R"("clock":")", "\""), thread}].push_back(text);
    }
    Lines all;
    for (const auto& [when, texts] : deeds) {
        for (const std::string& text : texts) {
            all.push_back(when.first + " thread " + std::to_string(when.second) + ": " + text);
        }
    }
    return all;
}

TEST(WalkTest, TheServiceDoesInEachStateWhatItsWalkTells)
{
    const fs::path tests = fs::path(HOLV_SOURCE_DIR) / "tests";
    const Lines walk = DeedsOf(TraceOf(tests / "walk.pc", 0));
    if (std::getenv("HOLV_KEEP_WALK")) {
        std::ofstream kept(tests / "expected/walk.txt");
        kept << "# What the programs do in tests/walk.pc. Written by HOLV_KEEP_WALK=1.\n\n[walk]\n";
        for (const std::string& deed : walk) kept << deed << '\n';
    }
    EXPECT_LINES(walk, BlockOf("walk.txt", "walk"));
}

}  // namespace
