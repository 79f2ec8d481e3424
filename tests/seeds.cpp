#include "tests/seeds.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>
#include <ostream>
#include <string_view>

#include "tests/fresh_service.h"
#include "tests/virtual_pc_test.h"

using virtual_pc::Machine;

namespace {

// FNV-1a: the same on every host and in every run.
std::uint64_t Hash(std::string_view text)
{
    std::uint64_t hash = 0xCBF29CE484222325u;
    for (const char character : text) {
        hash = (hash ^ static_cast<unsigned char>(character)) * 0x100000001B3u;
    }
    return hash;
}

std::string RunningTest()
{
    const auto* const test = testing::UnitTest::GetInstance()->current_test_info();
    return test ? std::string(test->test_suite_name()) + "." + test->name() : "";
}

std::string Variable(const char* name)
{
    const char* const value = std::getenv(name);
    return value ? value : "";
}

std::string Program() { return std::filesystem::read_symlink("/proc/self/exe").string(); }

struct SeedRange
{
    std::uint64_t first;
    std::uint64_t last;
};

// The seeds of a storm, as HOLV_SEEDS and the day's seed say.
SeedRange SeedsOf(std::uint64_t count)
{
    const std::string seeds = Variable("HOLV_SEEDS");
    if (const std::size_t dash = seeds.find('-'); dash != seeds.npos) {
        return {std::stoull(seeds), std::stoull(seeds.substr(dash + 1))};
    }
    if (seeds.starts_with("x")) {
        count *= std::stoull(seeds.substr(1));
    } else if (!seeds.empty()) {
        count = std::stoull(seeds);
    }
    constexpr std::uint64_t kDays = 1'000'000'000;
    const std::string day = Variable("HOLV_SEED");
    const std::uint64_t first = day.empty() ? 1 : Hash(day) % kDays + 1;
    return {first, first + count - 1};
}

// The first place of a sweep, and how far apart the places are.
std::pair<std::uint64_t, std::uint64_t> PlacesOf(std::uint64_t stride)
{
    const std::string sweep = Variable("HOLV_SWEEP");
    if (sweep == "all") return {1, 1};
    if (const std::size_t slash = sweep.find('/'); slash != sweep.npos) {
        return {std::stoull(sweep), std::stoull(sweep.substr(slash + 1))};
    }
    return {1 + DrawnSchedule().seed % stride, stride};
}

int FailuresSoFar()
{
    return testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
}

std::uint64_t FreeLives(std::uint64_t count)
{
    const std::string seeds = Variable("HOLV_SEEDS");
    if (seeds.find('-') != seeds.npos) return kRunFree ? 1 : 0;
    return seeds.starts_with("x") ? count * std::stoull(seeds.substr(1)) : count;
}

}  // namespace

Machine::Options DrawnSchedule()
{
    if (kRunFree) return {.free = true};
    // 0 would be the fixed schedule.
    return {.seed = Hash(RunningTest() + Variable("HOLV_SEED")) | 1};
}

std::string RepeatCommand()
{
    const std::string day = Variable("HOLV_SEED");
    return (day.empty() ? "" : "HOLV_SEED=" + day + " ") + Program() +
           " --gtest_filter=" + RunningTest();
}

// --- Storms ---

std::vector<Machine::Options> LivesOf(const StormSize& size)
{
    std::vector<Machine::Options> lives;
    const SeedRange seeds = SeedsOf(size.seeds);
    for (std::uint64_t seed = seeds.first; seed <= seeds.last && !kRunFree; ++seed) {
        lives.push_back({.seed = seed});
    }
    for (std::uint64_t i = 0; i < FreeLives(size.free); ++i) {
        lives.push_back({.free = true, .seed = seeds.first + i});
    }
    return lives;
}

std::string LifeTrace(const Machine::Options& life)
{
    const std::string seed = std::to_string(life.seed);
    return "seed " + seed + (life.free ? ", free" : "") + "; repeat: HOLV_SEEDS=" + seed + "-" +
           seed + " " + Program() + " --gtest_filter=" + RunningTest();
}

void virtual_pc::PrintTo(const Machine::Options& life, std::ostream* out)
{
    *out << "seed " << life.seed << (life.free ? ", free" : "");
}

void Storm(const StormSize& size, const std::function<void(Machine::Options)>& live)
{
    for (const Machine::Options& life : LivesOf(size)) {
        SCOPED_TRACE(LifeTrace(life));
        FreshService();
        live(life);
        if (testing::Test::HasFailure()) return;
    }
}

void StormOnPc(const StormSize& size,
               const std::function<void(Machine&, const Machine::Options&)>& live)
{
    Storm(size, [&](const Machine::Options& life) {
        Machine pc(life);
        live(pc, life);
        ExpectNothingLeft(pc);
    });
}

// --- Sweeps ---

void Sweep(std::uint64_t stride, std::uint64_t least,
           const std::function<bool(std::uint64_t place)>& live)
{
    // One failure is enough in a sample; in a whole sweep, several show what they share.
    const int most_failing = Variable("HOLV_SWEEP").empty() ? 1 : 100;
    const auto [first, apart] = PlacesOf(stride);
    std::uint64_t place = first;
    int lives = 0;
    int failing = 0;
    for (bool found = true; found && failing < most_failing; place += apart, ++lives) {
        const std::string number = std::to_string(place);
        SCOPED_TRACE(::testing::Message() << "at place " << number << "; repeat: HOLV_SWEEP="
                                          << number << "/1000000 " << RepeatCommand());
        const int failures = FailuresSoFar();
        found = live(place);
        if (FailuresSoFar() > failures) ++failing;
    }
    std::cout << lives << " lives, " << failing << " failed\n";
    if (failing == 0) {
        EXPECT_GT(place, least) << "the places of a whole sweep";
    }
}
