// Hears for the service what the machine announces, and calls the state machine's handlers, one at
// a time, on a thread of the service's process. It stands in for the service's control handler, as
// long as the service manager does not call that.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <utility>

#include "platform/virtual/machine.h"

class ControlThread final : private virtual_pc::Announcer::Hearer
{
public:
    explicit ControlThread(virtual_pc::Machine& pc);
    ~ControlThread() override;

    // Calls this process's handlers from now on, which it finds in its image. With the machine
    // held, before the image runs.
    void Serve(virtual_pc::Process& service);

private:
    struct Heard
    {
        virtual_pc::Announcement what;
        std::function<void()> handled;
    };
    bool Hear(const virtual_pc::Announcement& announcement,
              const std::function<void()>& handled) override;
    void Work();
    void Call(const virtual_pc::Announcement& announcement) const;

    virtual_pc::Machine& m_pc;
    virtual_pc::Process* m_service = nullptr;
    std::deque<Heard> m_heard;
    std::shared_ptr<virtual_pc::Waitable> m_work;
};
