// The state machine as it runs in the service, for tests that call its operations while it does.
#pragma once

#include "log/log.h"
#include "platform/owned.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/registry/registry.h"
#include "service/state_machine_thread.h"
#include "settings/settings.h"
#include "settings/settings_store.h"
#include "state/global_events.h"
#include "state/never_sleep_state.h"
#include "state/on_ac_power.h"
#include "tests/fresh_service.h"
#include "tests/virtual_pc_test.h"

// The events of the state machine, as long as it lives.
struct GlobalEvents
{
    GlobalEvents() { createGlobalEvents(); }
    ~GlobalEvents() { closeGlobalEvents(); }
    GlobalEvents(const GlobalEvents&) = delete;
    GlobalEvents& operator=(const GlobalEvents&) = delete;
};

// A process that runs the state machine from start to end, as the service's main does: `before` it
// is started, and `meanwhile`, on the process's first thread.
inline int RunService(const std::function<void()>& before = {},
                      const std::function<void()>& meanwhile = {})
{
    RegInit();
    const GlobalEvents events;
    if (before) before();
    const OwnedHandle thread(CreateThread(nullptr, 0, StateMachineThreadProc, nullptr, 0, nullptr));
    if (meanwhile) meanwhile();
    WaitForSingleObject(thread.Get(), INFINITE);
    return 0;
}

inline void Go(virtual_pc::Machine& pc, GlobalEvent event)
{
    SignalGlobalEvent(event);
    pc.RunFor(std::chrono::milliseconds(10));
}

class RunningServiceTest : public VirtualPcTest
{
protected:
    RunningServiceTest()
    {
        Set(L"LoggingLevel", 6);
        Set(L"LoggingEnabled", kLogToDebugger);
    }

    // A new process, with data of its own.
    void Start()
    {
        FreshService();
        m_service = &pc.Start([] { return RunService(); });
        pc.RunFor(std::chrono::milliseconds(10));
    }
    void Stop()
    {
        SignalGlobalEvent(EVENT_SERVICE_STOP);
        pc.RunUntilEnd(*m_service);
    }
    // Runs `body` on a thread of the service's process, as the control interface does.
    void InService(std::function<void()> body)
    {
        bool done = false;
        {
            const virtual_pc::Hold hold(pc);
            m_service->StartThread(pc, [&]() -> DWORD {
                body();
                const virtual_pc::Hold end(pc);
                done = true;
                return 0;
            });
        }
        pc.RunUntil([&] { return done; });
    }

    virtual_pc::Process* m_service = nullptr;
};
