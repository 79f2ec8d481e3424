// The storm itself: a seed repeats its life, leaving out a deed changes no other, a planted fault
// is found and shrunk to a script that plays to the same end, and known gaps are matched by their
// deeds.

#include "storm/storm.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>

#include "storm/child.h"
#include "storm/gaps.h"
#include "storm/life.h"
#include "storm/schedules.h"
#include "storm/shrink.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

const std::vector<Gap> kNoGaps;

PlayOptions StormPlay(const fs::path& trace = {})
{
    return {.trace = trace, .image = HOLV_IMAGE, .resources = HOLV_SOURCE_DIR "/resources"};
}

fs::path Scratch(const std::string& name)
{
    return fs::temp_directory_path() / ("holv-storm-" + std::to_string(getpid()) + "-" + name);
}

// Played in a process of its own, as the machine is one for each.
Outcome Alone(const PlayPlan& plan, const std::function<Outcome(const PlayPlan&)>& play)
{
    return PlayedAlone(60s, [&](Pulse& pulse) {
        PlayPlan own = plan;
        own.pulse = &pulse;
        return ToJson(play(own));
    });
}

Outcome Lived(const Life& life, const PlayPlan& plan)
{
    return Alone(plan, [&](const PlayPlan& own) { return Play(life, own); });
}

std::string TextOfFile(const fs::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

TEST(StormLifeTest, ASeedRepeatsItsLifeByteByByte)
{
    const fs::path first = Scratch("first");
    const fs::path second = Scratch("second");
    for (const std::uint64_t seed : {3, 4, 5}) {
        const Life life = DrawLife(seed, 2);
        Lived(life, {StormPlay(first), kNoGaps});
        Lived(DrawLife(seed, 2), {StormPlay(second), kNoGaps});
        const std::string trace = TextOfFile(first);
        EXPECT_GT(trace.size(), 10'000u);
        EXPECT_TRUE(trace == TextOfFile(second)) << "seed " << seed;
    }
    fs::remove(first);
    fs::remove(second);
}

TEST(StormLifeTest, EveryKindOfDeedIsDrawnAndEveryCommandIsOne)
{
    std::set<std::string> kinds;
    for (std::uint64_t seed = 1; seed <= 40; ++seed) {
        const Life life = DrawLife(seed, 8);
        EXPECT_TRUE(std::ranges::is_sorted(life.deeds, {}, &Deed::at));
        for (const auto* list : {&life.home, &life.deeds}) {
            for (const Deed& deed : *list) {
                for (const std::string& line : deed.lines) {
                    EXPECT_NO_THROW(Bind(ReadLine(line, {}, 1))) << "seed " << seed << ": " << line;
                }
                kinds.insert(deed.kind);
            }
        }
    }
    EXPECT_GE(kinds.size(), 45u);
}

// --- Shrinking ---

// A finding where the user puts the PC to sleep and later chooses a plan, and is never told.
Outcome FindsSleepBeforePlan(const Life& life)
{
    Outcome outcome;
    bool slept = false;
    for (const Deed& deed : life.deeds) {
        ++outcome.due;
        for (const std::string& line : deed.lines) {
            if (line == "sleep") slept = true;
            if (!slept || !line.starts_with("plan active")) continue;
            outcome.finding = Finding{"planted", "here", "so", "otherwise", {}, {}, {}};
            return outcome;
        }
    }
    return outcome;
}

TEST(StormShrinkTest, WhatAFindingDoesNotNeedIsLeftOut)
{
    int shrunk_lives = 0;
    for (std::uint64_t seed = 1; shrunk_lives < 3; ++seed) {
        ASSERT_LT(seed, 50u);
        const Life life = DrawLife(seed, 20);
        const Outcome outcome = FindsSleepBeforePlan(life);
        if (!outcome.finding) continue;
        ++shrunk_lives;
        const Shrunk shrunk = Shrink(
            life, *outcome.finding,
            [](const Life& one, Pulse&) { return FindsSleepBeforePlan(one); }, 2, 60s);
        ASSERT_TRUE(shrunk.outcome.finding);
        EXPECT_LE(shrunk.life.deeds.size(), 2u);
        EXPECT_TRUE(shrunk.life.home.empty());
        EXPECT_TRUE(FindsSleepBeforePlan(shrunk.life).finding);
        EXPECT_LT(shrunk.life.span, life.span);
    }
}

TEST(StormShrinkTest, ALifeThatCrashesOrHangsIsAFindingOfItsOwn)
{
    std::vector<std::string> found;
    std::size_t begun = 0;
    Pool(2, 1s).Run(
        [&]() -> std::optional<Pool::Work> {
            switch (begun++) {
                case 0:
                    return [](Pulse&) -> std::string { std::abort(); };
                case 1:
                    return [](Pulse&) -> std::string {
                        for (;;) pause();
                    };
                case 2:
                    return [](Pulse&) { return ToJson(Outcome{}); };
                default:
                    return std::nullopt;
            }
        },
        [&](std::size_t number, const Ended& ended) {
            const Outcome outcome = OutcomeOf(ended);
            EXPECT_EQ(outcome.finding.has_value(), number < 2) << number;
            if (outcome.finding) found.push_back(outcome.finding->object);
        });
    std::ranges::sort(found);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_NE(found[0].find("no time"), std::string::npos) << found[0];
    EXPECT_NE(found[1].find("Aborted"), std::string::npos) << found[1];
}

// --- Schedules ---

TEST(StormScheduleTest, ADepartureLeadsToAnotherHistoryWhichRepeats)
{
    const auto script = ReadScript(HOLV_SOURCE_DIR "/storm/schedules/return_and_unplugging.pc");
    const fs::path trace = Scratch("schedule");
    std::string history;
    const auto play = [&](const std::string& departures) {
        PlayPlan plan{StormPlay(trace), kNoGaps};
        if (!departures.empty()) plan.options.machine.departures = DeparturesOf(departures);
        Outcome outcome =
            Alone(plan, [&](const PlayPlan& own) { return PlayUnderWatch(script, own); });
        EXPECT_FALSE(outcome.finding) << outcome.finding->Key();
        history = TextOfFile(trace);
        return outcome;
    };
    const Outcome fixed = play("");
    const std::string in_order = history;
    ASSERT_GT(fixed.points_at_once, 50u);
    EXPECT_LT(fixed.points_at_once, fixed.points.size());
    // Where the threads that change places do not meet, the history is the same.
    constexpr std::size_t kParts = 8;
    std::string departure;
    for (std::size_t part = 1; part < kParts && history == in_order; ++part) {
        departure = std::to_string(fixed.points_at_once * part / kParts) + ":0";
        play(departure);
    }
    const std::string departed = history;
    EXPECT_FALSE(departed == in_order);
    play(departure);
    EXPECT_TRUE(departed == history);
    fs::remove(trace);
    EXPECT_THROW(DeparturesOf("17"), std::invalid_argument);
    EXPECT_THROW(DeparturesOf("17:0 23:1"), std::invalid_argument);
}

// --- Known gaps ---

TEST(StormGapTest, AGapExplainsByItsDeedsAndNeverByThePromiseAlone)
{
    const Gap gap{"g", "the plan*", "active *", {"plan policy", "user leaves"}, 2, "why", {}};
    const Finding finding{"the plan is the user's", "active plan", "A", "B", 100min, 110min, {}};
    const auto explains = [&](const Finding& found, const std::vector<Done>& done) {
        return Explains({gap}, found, done) != nullptr;
    };
    const std::vector<Done> led = {{30min, "plan policy Balanced"}, {40min, "user leaves"}};
    EXPECT_TRUE(explains(finding, led));
    EXPECT_FALSE(explains(finding, {}));
    EXPECT_FALSE(explains(finding, {led[1], {50min, "plan policy Balanced"}}))
        << "in another order";
    EXPECT_FALSE(explains(finding, {led[0], {120min, "user leaves"}})) << "after it";
    Finding later = finding;
    later.since = 5h;
    EXPECT_FALSE(explains(later, led)) << "too long before";
    Finding other = finding;
    other.object = "mute Desk";
    EXPECT_FALSE(explains(other, led));
}

TEST(StormGapTest, EachKnownGapIsShownByItsOwnScript)
{
    StormOptions options;
    options.play = StormPlay();
    options.gaps = HOLV_SOURCE_DIR "/storm/known_gaps.txt";
    std::ostringstream out;
    EXPECT_EQ(RunGaps(options, out), 0) << out.str();
}

// --- Tallies ---

TEST(StormTallyTest, TalliesOfSeveralStormsAddUpAndCountAFindingOnce)
{
    Outcome clean;
    clean.lived = 48h;
    clean.situations["rare"] = 3;
    Outcome broken = clean;
    broken.finding =
        Finding{"promise", "object", "so", "otherwise", 1s, 2s, "2026-03-02 12:00:00.000"};
    std::vector<fs::path> files;
    for (const std::uint64_t seed : {10, 20}) {
        Tally tally;
        tally.Add(seed, 0, clean);
        broken.deeds = seed;
        tally.Add(seed + 1, 0, broken);
        files.push_back(Scratch(std::to_string(seed)));
        std::ofstream(files.back()) << tally.Json();
    }
    StormOptions options;
    options.out = Scratch("all");
    std::ostringstream out;
    EXPECT_EQ(Merge(options, files, out), 1);
    const Tally all = Tally::Read(options.out);
    EXPECT_EQ(all.lives, 4u);
    EXPECT_EQ(all.days, 8);
    EXPECT_EQ(all.situations.at("rare"), 12u);
    ASSERT_EQ(all.findings.size(), 1u);
    EXPECT_EQ(all.findings.begin()->second.lives, 2u);
    EXPECT_EQ(all.findings.begin()->second.seed, 11u) << "the life with the fewest deeds";
    files.push_back(options.out);
    for (const fs::path& file : files) fs::remove(file);
}

}  // namespace
