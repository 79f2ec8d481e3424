// The state machine as it runs in the service, for tests that call its operations while it does.
#pragma once

#include "log/log.h"
#include "platform/owned.h"
#include "service/state_machine_thread.h"
#include "settings/settings.h"
#include "settings/settings_store.h"
#include "state/global_events.h"
#include "state/never_sleep_state.h"
#include "state/on_ac_power.h"
#include "tests/virtual_pc_test.h"

// A process that runs the state machine from start to end, as the service's main does.
inline int RunService()
{
    RegInit();
    createGlobalEvents();
    {
        const OwnedHandle thread(
            CreateThread(nullptr, 0, StateMachineThreadProc, nullptr, 0, nullptr));
        WaitForSingleObject(thread.Get(), INFINITE);
    }
    closeGlobalEvents();
    return 0;
}

// The state record outlives the processes of a test program; a new process finds it fresh.
inline void Refresh()
{
    using S = CNeverSleepState;
    S::m_eSystemState = S::m_ePreviousState = HOLV_INIT;
    for (std::atomic<BOOL>* flag : {&S::m_bInAwayMode, &S::m_bOverride, &S::m_bSeenDndStart,
                                    &S::m_bBatteryThresholdCrossed, &S::m_bAttendedWake}) {
        *flag = FALSE;
    }
    S::m_ullLastSusResEventTime = S::m_ullLastAudioEventTime = 0;
    g_bOnAcPower = TRUE;
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
        Refresh();
        Set(L"LoggingLevel", 6);
        Set(L"LoggingEnabled", kLogToDebugger);
    }
    ~RunningServiceTest() override { Refresh(); }

    void Set(const wchar_t* setting, DWORD value)
    {
        pc.registry.SetDword(kUserKey, setting, value);
    }
    void Start()
    {
        m_service = &pc.Start(RunService);
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

    // The lines since the last Forget of functions whose names begin so, without who speaks.
    std::vector<std::string> Told(const std::string& functions) const
    {
        std::vector<std::string> lines;
        const virtual_pc::Hold still(pc);
        for (std::size_t i = forgotten(); i < pc.outputs.debug().size(); ++i) {
            const std::string line = virtual_pc::ToUtf8(pc.outputs.debug()[i].text);
            if (!line.starts_with("HOLV - " + functions)) continue;
            lines.push_back(line.substr(line.find("   ") + 3));
        }
        return lines;
    }
    virtual_pc::Process* m_service = nullptr;
};
