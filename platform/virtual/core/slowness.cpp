#include "platform/virtual/core/slowness.h"

#include <cmath>

#include "platform/virtual/core/draws.h"
#include "platform/virtual/core/faults.h"
#include "platform/virtual/core/thread.h"

namespace virtual_pc {
namespace {

constexpr double kRareRate = 1.0 / 500;
constexpr double kRareTimes = 1000;
constexpr double kHangRate = 1.0 / 20'000;
constexpr double kHangSeconds = 60;

Duration Seconds(double seconds)
{
    return std::chrono::ceil<Duration>(std::chrono::duration<double>(seconds));
}

// A span of the distribution that a function has by its name and the seed.
Duration DrawByName(Random typical, Random draw)
{
    if (draw.Fraction() < kHangRate) return Seconds(draw.Fraction() * kHangSeconds);
    const double microsecond_to_millisecond = 1e-6 * std::pow(10, 3 * typical.Fraction());
    const double times = draw.Fraction() < kRareRate ? kRareTimes : 1;
    return Seconds(-std::log1p(-draw.Fraction()) * microsecond_to_millisecond * times);
}

}  // namespace

std::optional<std::string> Slowness::Set(std::string_view name, const Pace& pace)
{
    const Function* function = Function::Find(name);
    if (!function) return "there is no platform function \"" + std::string(name) + "\"";
    if (function->role() == Role::releases) return std::string(name) + " takes no time";
    m_paces[function->name()] = pace;
    m_any = true;
    return std::nullopt;
}

void Slowness::SetAll() { m_any = m_all = true; }

void Slowness::Clear(std::string_view function)
{
    m_paces.erase(function);
    m_any = m_all || !m_paces.empty();
}

void Slowness::ClearAll()
{
    m_paces.clear();
    m_any = m_all = false;
}

Duration Slowness::Draw(const Function& function, Thread& thread) const
{
    if (function.role() == Role::releases) return Duration{0};
    const std::uint64_t by_function = SeedOf(m_seed, function);
    Random draw = DrawOf(by_function, thread, ++thread.slow_calls[&function]);
    const auto found = m_paces.find(function.name());
    if (found == m_paces.end()) {
        const bool takes_time = m_all && function.failing() != Failing::never;
        return takes_time ? DrawByName(Random(by_function), draw) : Duration{0};
    }
    const auto& [typical, rate] = found->second;
    if (draw.Fraction() >= rate) return Duration{0};
    return std::chrono::ceil<Duration>(typical * (0.5 + draw.Fraction()));
}

}  // namespace virtual_pc
