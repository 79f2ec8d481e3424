#include "storm/shrink.h"

#include <algorithm>

#include "pc/stop_signals.h"

using namespace std::chrono_literals;

namespace {

constexpr std::chrono::seconds kPatience{20};

class Shrinking
{
public:
    Shrinking(const Life& life, const Finding& finding, const LifePlayer& play, int jobs,
              std::chrono::seconds most)
        : m_key(finding.Key()),
          m_play(play),
          m_jobs(jobs),
          m_until(std::chrono::steady_clock::now() + most)
    {
        m_shrunk.life = life;
    }

    Shrunk Do();

private:
    // Plays the lives, some at a time, and takes the first that comes to the finding. False for
    // none.
    bool TakeFirst(const std::vector<Life>& lives);
    bool TimeIsUp() const
    {
        return StopSignal() != 0 || std::chrono::steady_clock::now() > m_until;
    }
    void LeaveOut();
    void Hurry();
    std::size_t Size() const { return m_shrunk.life.home.size() + m_shrunk.life.deeds.size(); }
    // The life without the deeds of a range; those of the home are counted last, and so go last.
    Life Without(std::size_t from, std::size_t count) const;

    std::string m_key;
    const LifePlayer& m_play;
    int m_jobs;
    std::chrono::steady_clock::time_point m_until;
    Shrunk m_shrunk;
};

bool Shrinking::TakeFirst(const std::vector<Life>& lives)
{
    std::size_t next = 0;
    std::optional<std::size_t> found;
    Outcome outcome;
    Pool pool(m_jobs, kPatience);
    pool.Run(
        [&]() -> std::optional<Pool::Work> {
            if (next == lives.size() || found || TimeIsUp()) return std::nullopt;
            const Life& life = lives[next++];
            return [&life, this](Pulse& pulse) { return ToJson(m_play(life, pulse)); };
        },
        [&](std::size_t number, const Ended& ended) {
            ++m_shrunk.tries;
            Outcome result = OutcomeOf(ended);
            if (!result.finding || result.finding->Key() != m_key) return;
            if (found && *found < number) return;
            found = number;
            outcome = std::move(result);
        });
    if (!found) return false;
    m_shrunk.life = lives[*found];
    m_shrunk.outcome = std::move(outcome);
    // What would have come after the finding.
    if (m_shrunk.outcome.due < m_shrunk.life.deeds.size()) {
        m_shrunk.life.deeds.resize(m_shrunk.outcome.due);
    }
    return true;
}

Life Shrinking::Without(std::size_t from, std::size_t count) const
{
    Life life = m_shrunk.life;
    const std::size_t deeds = life.deeds.size();
    const auto cut = [](std::vector<Deed>& list, std::size_t begin, std::size_t end) {
        list.erase(list.begin() + static_cast<std::ptrdiff_t>(begin),
                   list.begin() + static_cast<std::ptrdiff_t>(end));
    };
    const std::size_t to = std::min(from + count, deeds + life.home.size());
    if (to > deeds) cut(life.home, std::max(from, deeds) - deeds, to - deeds);
    if (from < deeds) cut(life.deeds, from, std::min(to, deeds));
    return life;
}

void Shrinking::LeaveOut()
{
    for (std::size_t count = std::max<std::size_t>(Size() / 2, 1); !TimeIsUp();) {
        bool less = false;
        for (std::size_t from = 0; from < Size() && !TimeIsUp();) {
            std::vector<Life> lives;
            for (int i = 0; i < m_jobs && from + static_cast<std::size_t>(i) * count < Size();
                 ++i) {
                lives.push_back(Without(from + static_cast<std::size_t>(i) * count, count));
            }
            if (TakeFirst(lives)) {
                less = true;
            } else {
                from += lives.size() * count;
            }
        }
        if (count == 1 && !less) return;
        if (count > 1) count /= 2;
    }
}

// Lets less time pass between the deeds, and after them.
void Shrinking::Hurry()
{
    const auto sooner = [this](std::size_t from, virtual_pc::Duration by) {
        Life life = m_shrunk.life;
        for (std::size_t i = from; i < life.deeds.size(); ++i) life.deeds[i].at -= by;
        life.span -= by;
        return life;
    };
    for (std::size_t i = 0; i <= m_shrunk.life.deeds.size() && !TimeIsUp(); ++i) {
        const auto& deeds = m_shrunk.life.deeds;
        const virtual_pc::Duration before = i == 0 ? 0ms : deeds[i - 1].at;
        const virtual_pc::Duration gap =
            (i == deeds.size() ? m_shrunk.life.span : deeds[i].at) - before;
        for (const virtual_pc::Duration left :
             {virtual_pc::Duration{2s}, virtual_pc::Duration{2min}, virtual_pc::Duration{10min}}) {
            if (gap > 2 * left && TakeFirst({sooner(i, gap - left)})) break;
        }
    }
}

Shrunk Shrinking::Do()
{
    if (TakeFirst({m_shrunk.life})) {
        LeaveOut();
        Hurry();
        LeaveOut();
    }
    return std::move(m_shrunk);
}

}  // namespace

Shrunk Shrink(const Life& life, const Finding& finding, const LifePlayer& play, int jobs,
              std::chrono::seconds most)
{
    return Shrinking(life, finding, play, jobs, most).Do();
}
