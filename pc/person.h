// A person who lives with the PC: ordinary days of work and lunch, evenings, weekends, and days on
// the road, on battery.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <random>

#include "platform/virtual/core/machine.h"
#include "platform/virtual/power/power.h"

class Person
{
public:
    // Does nothing before Live. The same seed gives the same days.
    Person(virtual_pc::Machine& pc, std::uint64_t seed) : m_pc(pc), m_random(seed) {}

    // Moments at which the state of the PC should have settled: the person has just sat down, or
    // has been gone for more than two hours.
    enum class Moment
    {
        there,
        gone,
    };
    using Quiet = std::function<void(Moment)>;

    // Lives for whole days, each to its midnight, and calls `quiet` at each Moment.
    void Live(int days, const Quiet& quiet = {});

private:
    using Duration = virtual_pc::Duration;
    struct Deed
    {
        Duration at;  // since midnight
        void (Person::*what)();
    };
    std::vector<Deed> Weekday();
    std::vector<Deed> Weekend();
    std::vector<Deed> OnTheRoad();

    void SitDown();
    void GetUp();
    void PutToSleep();
    void Unplug();
    void PlugIn();
    void StartFilm();
    void EndFilm();

    bool Chance(unsigned percent);
    // A time of day around an hour, give or take some minutes.
    Duration Around(double hour, unsigned minutes);
    void RunUntil(Duration of_day);

    virtual_pc::Machine& m_pc;
    std::mt19937_64 m_random;
    std::shared_ptr<virtual_pc::PowerRequest> m_film;
    bool m_there = false;
};
