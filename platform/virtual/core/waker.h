// What a timer that may wake the PC asks of its sleep.
#pragma once

namespace virtual_pc {

class Waker
{
public:
    virtual ~Waker() = default;
    // Called when a timer that may wake the PC is due. Does nothing unless the PC sleeps and wake
    // timers are allowed.
    virtual void WakeByTimer() = 0;
    // Whether the plan in force allows wake timers, and the request for the present sleep did too.
    virtual bool WakeTimersAllowed() const = 0;
};

}  // namespace virtual_pc
