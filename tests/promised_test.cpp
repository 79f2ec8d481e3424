// The model of what the user was promised: silent while the service keeps it, as on every
// scenario's day, and loud where something of the user's is not as it was.

#include "storm/promised/promised.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <set>
#include <sstream>

#include "pc/player.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/power/sleep.h"
#include "platform/virtual/sound/audio.h"
#include "tests/virtual_pc_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace fs = std::filesystem;

namespace {

const fs::path kAllScenarios = fs::path(HOLV_SOURCE_DIR) / "scenarios";

PlayOptions WatchedOptions()
{
    return {.machine = {.free = kRunFree},
            .image = HOLV_IMAGE,
            .resources = HOLV_SOURCE_DIR "/resources"};
}

// A PC whose every minute is looked at, from the service's installation on.
class WatchedPc
{
public:
    void Play(const ScriptLine& line)
    {
        const auto& words = line.words;
        if (!m_promised && words[0] == "service") m_promised.emplace(m_player.pc());
        if (words.size() == 2 && words[0] == "run") return Run(line, DurationOf(line, words[1]));
        if (m_promised) m_promised->Deed(line);
        m_player.Play(line);
        Look();
    }
    void Play(std::initializer_list<const char*> lines)
    {
        for (const char* const line : lines) Play(ReadLine(line, {}, 1));
    }
    void Look()
    {
        if (m_promised) Add(m_promised->Check());
    }
    void End() { Add(m_promised->CheckEnd()); }
    // What was found to be wrong, a line each.
    const std::set<std::string>& found() const { return m_found; }
    Machine& pc() { return m_player.pc(); }

    // Does something as a process of the service's program does.
    void AsTheService(const std::function<void(Machine&)>& deed)
    {
        pc().RunUntilEnd(pc().Start([&] {
            deed(pc());
            return 0;
        }));
    }

    // Lets every call of a platform function fail meanwhile.
    void Fail(const char* function, const std::function<void()>& meanwhile)
    {
        {
            const Hold hold(pc());
            ASSERT_FALSE(pc().faults.Set(function, {.count = Faults::kAlways}).has_value());
        }
        meanwhile();
        const Hold hold(pc());
        pc().faults.Clear(function);
    }

private:
    void Run(const ScriptLine& line, Duration span)
    {
        for (; span > Duration{0}; span -= std::min<Duration>(span, 1min)) {
            ScriptLine piece = line;
            const auto part =
                std::chrono::ceil<std::chrono::milliseconds>(std::min<Duration>(span, 1min));
            piece.words[1] = std::to_string(part.count()) + "ms";
            m_player.Play(piece);
            if (m_promised) Look();
        }
    }
    void Add(const std::vector<Broken>& broken)
    {
        for (const Broken& one : broken) {
            m_found.insert(one.promise + ": " + one.object + " was to be " + one.promised +
                           " and is " + one.is);
        }
    }

    std::ostringstream m_story;
    Losses m_losses;
    Player m_player{WatchedOptions(), m_story, m_losses};
    std::optional<Promised> m_promised;
    std::set<std::string> m_found;
};

// --- Days on which every promise is kept ---

std::vector<std::string> WatchedScenarios()
{
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(kAllScenarios)) {
        if (entry.path().extension() != ".pc") continue;
        names.push_back(relative(entry.path(), kAllScenarios).replace_extension().string());
    }
    return names;
}

class PromisedScenarioTest : public ::testing::TestWithParam<std::string>
{
};

TEST_P(PromisedScenarioTest, BreaksNoPromise)
{
    WatchedPc watched;
    for (const ScriptLine& line : ReadScript(kAllScenarios / (GetParam() + ".pc")))
        watched.Play(line);
    EXPECT_EQ(watched.found(), std::set<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(All, PromisedScenarioTest, ::testing::ValuesIn(WatchedScenarios()),
                         [](const auto& scenario) {
                             std::string name = scenario.param;
                             std::ranges::replace(name, '/', '_');
                             return name;
                         });

// --- Harms ---

class PromisedTest : public ::testing::Test
{
protected:
    PromisedTest()
    {
        home.Play({"clock 2026-03-02 12:00", "device add ACPI\\QRX5071\\1",
                   "audio add Desk render unmuted default", "audio add Phones render unmuted",
                   "reg set HKLM\\Software\\Orbeq\\Holv\\User MuteAudio dword 1", "service install",
                   "service start", "user works", "run 10m"});
    }
    using Found = std::set<std::string>;

    WatchedPc home;
};

TEST_F(PromisedTest, WhatTheServiceHasTakenFromTheUserIsFound)
{
    home.AsTheService([](Machine& pc) {
        pc.power.Write(GUID_TYPICAL_POWER_SAVINGS, GUID_DEVICE_POWER_POLICY_VIDEO_BRIGHTNESS,
                       PowerSource::dc, 11);
    });
    home.Play({"run 4m"});
    EXPECT_EQ(home.found(), Found{}) << "it may yet be put right";
    home.Play({"run 3m"});
    EXPECT_EQ(home.found(), Found{"the plans have the user's values: plan \"Balanced\" dc "
                                  "brightness was to be 40 and is 11"});
}

TEST_F(PromisedTest, WhatTheUserHasChangedIsPromisedFromThenOn)
{
    home.Play({"plan set Balanced dc brightness 11", "plan active \"High performance\"",
               "audio mute Desk", "run 10m", "user leaves", "sleep", "run 10m"});
    EXPECT_EQ(home.found(), Found{});
    home.Play({"service stop"});
    home.AsTheService([](Machine& pc) {
        pc.power.Activate(GUID_TYPICAL_POWER_SAVINGS);
        pc.power.Write(GUID_TYPICAL_POWER_SAVINGS, GUID_DEVICE_POWER_POLICY_VIDEO_BRIGHTNESS,
                       PowerSource::dc, 75);
        pc.audio.Find(L"Desk")->SetMute(false);
    });
    home.Play({"run 6m"});
    EXPECT_EQ(
        home.found(),
        (Found{
            "the endpoints sound as the user left them: mute Desk was to be muted and is unmuted",
            "the plans have the user's values: plan \"Balanced\" dc brightness was to be 11 and is "
            "75",
            "the user's plan is active: active plan was to be High performance and is Balanced"}));
}

TEST_F(PromisedTest, AKillIsForgivenUntilTheNextStart)
{
    home.Play({"user leaves", "sleep", "run 10m", "service kill", "user works", "run 10m"});
    EXPECT_EQ(home.pc().power.active().name, L"Power saver");
    EXPECT_EQ(home.found(), Found{});
    home.Play({"service start", "run 10m"});
    EXPECT_EQ(home.found(), Found{});
    home.Play({"service stop", "run 10m"});
    home.End();
    EXPECT_EQ(home.found(), Found{});
}

// The model is not told of the faults: to it the service has simply not acted.
TEST_F(PromisedTest, AServiceThatDoesNotActIsFound)
{
    home.Fail("SetSuspendState", [&] { home.Play({"user leaves", "run 1h"}); });
    EXPECT_EQ(home.found(),
              Found{"a PC without its user goes into away mode: the PC was to be away "
                    "and is awake"});
}

TEST_F(PromisedTest, AReturnThatNothingFollowsIsFound)
{
    home.Play({"user leaves", "sleep", "run 10m"});
    home.Fail("PowerSetActiveScheme", [&] { home.Play({"user works", "run 1m"}); });
    EXPECT_EQ(home.found(),
              Found{"the user's plan is active: active plan was to be Balanced and is "
                    "Power saver"});
}

}  // namespace
