#include "storm/life.h"

#include <algorithm>

#include "storm/deeds.h"

using namespace virtual_pc;
using namespace std::chrono_literals;

namespace {

// The streams of a seed; those of deeds begin at kDeeds.
enum : std::uint64_t
{
    kSwarm = 1,
    kHome = 2,
    kDays = 3,
    kDeeds = 1000,
};

// What the swarm has drawn for a life.
struct Swarm
{
    std::vector<const DeedKind*> kinds;  // each as often as its weight
    std::vector<std::string> names;
    unsigned absences_most;
    unsigned others_most;
    unsigned close_percent;  // of the deeds that come just before or after another
};

Swarm DrawSwarm(Draw& draw)
{
    Swarm swarm;
    const unsigned share = static_cast<unsigned>(draw.Between(10, 90));
    for (const DeedKind& kind : DeedKinds()) {
        if (!draw.Chance(share)) continue;
        swarm.names.emplace_back(kind.name);
        const auto weight = static_cast<std::size_t>(draw.Between(1, kind.weight));
        swarm.kinds.insert(swarm.kinds.end(), weight, &kind);
    }
    swarm.absences_most = static_cast<unsigned>(draw.Between(1, 6));
    swarm.others_most = static_cast<unsigned>(draw.Between(1, 10));
    swarm.close_percent = static_cast<unsigned>(draw.Between(10, 70));
    return swarm;
}

// How far apart two deeds are that have to do with each other: often just at, before or after a
// second, which is the service's own measure.
Duration Apart(Draw& draw)
{
    if (draw.Chance(60)) return draw.Of({0ms, 1ms, 999ms, 1000ms, 1001ms, 10ms, 2000ms});
    return draw.Of({5s, 10s, 15s, 30s, 31s, 60s, 61s}) +
           std::chrono::milliseconds{draw.Between(0, 999)};
}

Duration Absence(Draw& draw)
{
    if (draw.Chance(25)) return Apart(draw);
    const Duration about = draw.Of({1min, 5min, 20min, 1h, 3h, 8h, 12h});
    return about + std::chrono::milliseconds{draw.Between(0, 600'000)};
}

class Drawing
{
public:
    Drawing(std::uint64_t seed, const Home& home, const Swarm& swarm)
        : m_seed(seed), m_home(home), m_swarm(swarm)
    {
    }

    void Day(Duration midnight, Draw& draw);
    std::vector<Deed> deeds;

private:
    void Add(Duration at, std::string_view kind, Lines (*lines)(const DeedDraw&))
    {
        const std::uint64_t id = m_next++;
        Draw draw(m_seed, kDeeds + id);
        deeds.push_back({id, at, std::string(kind), lines({m_home, at, draw})});
    }
    // A deed of a drawn kind, and what ends it.
    void AddAny(Duration at);
    // A timer wakes the PC, and soon after that the user or something else comes.
    void WakeAndMeet(Duration at, Duration apart);

    std::uint64_t m_seed;
    const Home& m_home;
    const Swarm& m_swarm;
    std::uint64_t m_next = 0;
};

void Drawing::AddAny(Duration at)
{
    if (m_swarm.kinds.empty()) return;
    Draw draw(m_seed, kDeeds + m_next++);
    const DeedKind& kind = *draw.Of(m_swarm.kinds);
    const Duration lasts = Absence(draw);
    Add(at, kind.name, kind.lines);
    if (kind.after) Add(at + lasts, std::string(kind.name) + " ends", kind.after);
}

void Drawing::WakeAndMeet(Duration at, Duration apart)
{
    Add(at, "timer", WakeByTimer);
    Draw draw(m_seed, kDeeds + m_next++);
    if (draw.Chance(45)) {
        Add(at + apart, "return", ComeBack);
    } else if (draw.Chance(30)) {
        Add(at + apart, "sleep", PutToSleep);
    } else if (draw.Chance(20)) {
        Add(at + draw.Of({1ms, 500ms, 999ms}), "kill", KillService);
    } else {
        AddAny(at + apart);
    }
}

void Drawing::Day(Duration midnight, Draw& draw)
{
    const auto any_time = [&] {
        return midnight + std::chrono::milliseconds{draw.Between(0, 86'399'999)};
    };
    const auto close = [&](Duration to) {
        if (!draw.Chance(m_swarm.close_percent)) return;
        const Duration apart = Apart(draw);
        AddAny(to + (draw.Chance(30) && to > apart ? -apart : apart));
    };
    for (auto count = draw.Between(1, m_swarm.absences_most); count > 0; --count) {
        const Duration leaves = any_time();
        const Duration absence = Absence(draw);
        Add(leaves, "leave", Leave);
        close(leaves);
        for (int i = 0; i < 2 && absence > 1min; ++i) {
            const Duration amid = std::chrono::milliseconds{draw.Between(0, absence / 1ms)};
            if (draw.Chance(m_swarm.close_percent)) AddAny(leaves + amid);
            if (draw.Chance(15)) WakeAndMeet(leaves + amid, Apart(draw));
        }
        Add(leaves + absence, "return", ComeBack);
        close(leaves + absence);
    }
    for (auto count = draw.Between(0, m_swarm.others_most); count > 0; --count) AddAny(any_time());
}

}  // namespace

const std::vector<DeedKind>& DeedKinds()
{
    static const std::vector<DeedKind> kinds = [] {
        std::vector<DeedKind> all;
        for (const auto& part : {UserKinds(), SettingKinds(), UnkindKinds()}) {
            all.insert(all.end(), part.begin(), part.end());
        }
        return all;
    }();
    return kinds;
}

int DaysOf(std::uint64_t seed)
{
    Draw draw(seed, kDays);
    return static_cast<int>(draw.Chance(60) ? draw.Between(2, 8) : draw.Between(5, 40));
}

Life DrawLife(std::uint64_t seed, int days)
{
    if (days == 0) days = DaysOf(seed);
    Draw swarm_draw(seed, kSwarm);
    const Swarm swarm = DrawSwarm(swarm_draw);
    Draw home_draw(seed, kHome);
    const CalendarTime first = *ParseCalendar("2026-03-02 00:00");
    Home home{first + 24h * home_draw.Between(0, 360) + 1min * home_draw.Between(0, 1439),
              {"Balanced", "Power saver", "High performance", "Mine"},
              {"Desk", "Monitor", "Headphones", "Mic"}};
    Life life;
    life.machine.seed = seed;
    life.machine.priorities =
        swarm_draw.Chance(40) ? static_cast<int>(swarm_draw.Between(2, 4)) : 0;
    life.span = 24h * days;
    life.kinds = swarm.names;
    for (const std::string& line : SetUp(home_draw, home)) {
        life.home.push_back({life.home.size(), Duration{0}, "home", {line}});
    }
    Drawing drawing(seed, home, swarm);
    Draw days_draw(seed, kDays + 1);
    for (int day = 0; day < days; ++day) drawing.Day(1min + 24h * day, days_draw);
    std::ranges::stable_sort(drawing.deeds, {}, &Deed::at);
    life.deeds = std::move(drawing.deeds);
    return life;
}
