#include "pc/person.h"
#include "platform/virtual/power/sleep.h"
#include "platform/virtual/power/user.h"

#include <algorithm>

using namespace virtual_pc;

namespace {

constexpr Duration kDay = 24h;
constexpr Duration kSettled = 10s;
constexpr Duration kLongGone = 2h;

}  // namespace

bool Person::Chance(unsigned percent) { return m_random() % 100 < percent; }

Duration Person::Around(double hour, unsigned minutes)
{
    const auto either_way = std::chrono::minutes{minutes};
    const auto span = static_cast<std::uint64_t>(std::chrono::seconds{2 * either_way}.count());
    return std::chrono::seconds{static_cast<std::int64_t>(hour * 3600)} - either_way +
           std::chrono::seconds{m_random() % span};
}

// --- Days ---

std::vector<Person::Deed> Person::Weekday()
{
    const auto leave = Chance(40) ? &Person::PutToSleep : &Person::GetUp;
    std::vector<Deed> day = {{Around(8.5, 45), &Person::SitDown},
                             {Around(12, 20), &Person::GetUp},
                             {Around(13, 20), &Person::SitDown},
                             {Around(17.5, 60), leave}};
    if (Chance(40)) {
        day.push_back({Around(20, 30), &Person::SitDown});
        if (Chance(50)) {
            day.push_back({Around(20.75, 10), &Person::StartFilm});
            day.push_back({Around(21, 5), &Person::GetUp});
            day.push_back({Around(22.75, 10), &Person::EndFilm});
        } else {
            day.push_back({Around(22, 60), leave});
        }
    }
    return day;
}

std::vector<Person::Deed> Person::Weekend()
{
    std::vector<Deed> day;
    for (const double hour : {10.5, 15.0, 20.5}) {
        if (!Chance(50)) continue;
        day.push_back({Around(hour, 60), &Person::SitDown});
        day.push_back({Around(hour + 2.25, 30), Chance(30) ? &Person::PutToSleep : &Person::GetUp});
    }
    return day;
}

std::vector<Person::Deed> Person::OnTheRoad()
{
    std::vector<Deed> day = {{Around(7, 20), &Person::SitDown},
                             {Around(7.75, 20), &Person::Unplug}};
    for (const double hour : {9.0, 11.0, 14.0}) {
        day.push_back({Around(hour, 20), &Person::SitDown});
        day.push_back({Around(hour + 1, 20), Chance(50) ? &Person::PutToSleep : &Person::GetUp});
    }
    day.push_back({Around(17, 30), &Person::PlugIn});
    day.push_back({Around(18, 20), &Person::SitDown});
    day.push_back({Around(19, 30), &Person::GetUp});
    return day;
}

void Person::Live(int days, const Quiet& quiet)
{
    for (int day = 0; day < days; ++day) {
        const WORD weekday = FromCalendar(m_pc.clock()).wDayOfWeek;
        const bool weekend = weekday == 0 || weekday == 6;
        std::vector<Deed> deeds = weekend ? Weekend() : Chance(15) ? OnTheRoad() : Weekday();
        std::ranges::stable_sort(deeds, {}, &Deed::at);
        Duration left_at = kDay;
        for (const Deed& deed : deeds) {
            RunUntil(deed.at);
            if (quiet && !m_there && deed.at - left_at > kLongGone) quiet(Moment::gone);
            const bool was_there = m_there;
            (this->*deed.what)();
            if (was_there && !m_there) left_at = deed.at;
            if (quiet && !was_there && m_there) {
                m_pc.RunFor(kSettled);
                quiet(Moment::there);
            }
        }
        RunUntil(kDay);
    }
}

void Person::RunUntil(Duration of_day)
{
    const Duration midnight = std::chrono::floor<std::chrono::hours>(m_pc.clock()) / kDay * kDay;
    const Duration now = m_pc.clock() - midnight;
    if (of_day > now) m_pc.RunFor(of_day - now);
}

// --- Deeds ---

void Person::SitDown()
{
    m_there = true;
    m_pc.sleep.WakeByUser();
    m_pc.user.Works();
}

void Person::GetUp()
{
    m_there = false;
    m_pc.user.Leaves();
}

void Person::PutToSleep()
{
    GetUp();
    m_pc.sleep.Ask(L"the user");
}

void Person::Unplug()
{
    GetUp();
    m_pc.power.RunOnBattery(m_pc.power.battery_present ? m_pc.power.battery_percent : 100, false);
}

void Person::PlugIn() { m_pc.power.RunOnMains(); }

void Person::StartFilm()
{
    m_film = m_pc.power.NewRequest(LR"(C:\Program Files\Film.exe)", L"");
    m_pc.power.SetRequest(*m_film, PowerRequestDisplayRequired);
}

void Person::EndFilm()
{
    if (m_film) m_pc.power.ClearRequest(*m_film, PowerRequestDisplayRequired);
    m_film = nullptr;
}
