// The PC's time while commands are typed: it passes as the host's does, so many times as fast.
#pragma once

#include <chrono>

#include "platform/virtual/base/time.h"

class LiveClock
{
public:
    using Host = std::chrono::steady_clock;

    explicit LiveClock(double speed) : m_speed(speed) {}

    double speed() const { return m_speed; }
    void SetSpeed(double speed) { m_speed = speed; }

    // From now on; the time until here is not the PC's.
    void Start(Host::time_point now) { m_until = now; }

    // The PC's time since the last call, or since Start.
    virtual_pc::Duration Passed(Host::time_point now)
    {
        const std::chrono::duration<double> host = now - std::exchange(m_until, now);
        return std::chrono::duration_cast<virtual_pc::Duration>(host * m_speed);
    }

private:
    double m_speed;
    Host::time_point m_until{};
};
