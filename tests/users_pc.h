// A PC whose every plan, endpoint and device would show that the service has left something behind.
#pragma once

#include <string>

#include "log/log.h"
#include "pc/commands.h"
#include "pc/service_view.h"
#include "platform/service.h"
#include "platform/virtual/announcer/announcer.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/devices/device.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/registry/registry.h"
#include "platform/virtual/services/service_manager.h"
#include "platform/virtual/sound/audio.h"
#include "restore/journal.h"
#include "tests/virtual_pc_test.h"

inline constexpr const wchar_t* kRestoreKey = LR"(HKLM\Software\Orbeq\Holv\Restore)";

// What the user has of the PC, by names that a person can read.
inline Observations Find(virtual_pc::Machine& pc)
{
    Observations found = Observe(pc);
    std::erase_if(found, [](const auto& named) {
        return named.first.starts_with(R"(HKLM\SOFTWARE\Orbeq\Holv\Restore)") ||
               named.first.starts_with(R"(HKLM\SYSTEM\CurrentControlSet\Services\EventLog)");
    });
    // Never-sleep mode leaves its plan with the full processor.
    std::string& most = found["plan Power saver processor-max"];
    if (most == "100 75") most = "100 100";
    const virtual_pc::Hold hold(pc);
    found["mode"] = std::to_string(pc.devices.All().front()->Mode().value_or(0));
    for (const auto type : {PowerRequestSystemRequired, PowerRequestAwayModeRequired}) {
        found["request " + std::to_string(type)] = pc.power.Held(type) ? "held" : "released";
    }
    return found;
}

// What of the user's is not as it was. New registry keys are the program's own.
inline std::string Differences(const Observations& before, const Observations& after)
{
    std::string differences;
    for (const auto& [name, value] : before) {
        const auto now = after.find(name);
        const std::string found = now == after.end() ? "gone" : now->second;
        if (found != value) {
            differences.append(name).append(" was ").append(value);
            differences.append(", is ").append(found).append("\n");
        }
    }
    return differences;
}

enum Slot : int
{
    enter_s0 = 0,
    enter_active = 1,
    enter_idle = 2,
    enter_dnd = 3,
};

class UsersPc
{
public:
    explicit UsersPc(const virtual_pc::Machine::Options& life = DrawnSchedule(),
                     DWORD log_to = kLogToDebugger)
        : pc(life)
    {
        pc.registry.SetDword(kUserKey, L"LoggingEnabled", log_to);
        pc.registry.SetDword(kUserKey, L"MuteAudio", 1);
        pc.registry.SetDword(kUserKey, L"DndToS3", 1);
        pc.SetClock(*virtual_pc::ParseCalendar("2026-03-02 12:00"));
        pc.user.Works();
        pc.devices.AddHolvDevice();
        pc.audio.Add(L"Desk", eRender);
        pc.audio.Add(L"Monitor", eRender, {.muted = true});
        pc.audio.Add(L"Headphones", eRender);
        const GUID& saver = GUID_MAX_POWER_SAVINGS;
        pc.power.Write(saver, GUID_LOCK_CONSOLE_ON_WAKE, virtual_pc::PowerSource::ac, 0);
        pc.power.Write(saver, GUID_PROCESSOR_THROTTLE_MINIMUM, virtual_pc::PowerSource::dc, 0);
        before = Find(pc);
        pc.Install(image);
        pc.RunUntilEnd(*pc.StartInstalled(image.path, L"HOLVService.exe -Service"));
    }
    ~UsersPc()
    {
        // A killed process has left open what it had.
        ExpectNothingLeft(pc, true);
    }

    void StartService() { EXPECT_EQ(TryToStart(), DWORD{ERROR_SUCCESS}); }
    DWORD TryToStart()
    {
        const DWORD error = pc.services.Start(kServiceName);
        pc.RunFor(std::chrono::seconds{1});
        return error;
    }
    void StopService()
    {
        virtual_pc::Process& service = *view.service();
        EXPECT_EQ(pc.services.Control(kServiceName, SERVICE_CONTROL_STOP), DWORD{ERROR_SUCCESS});
        pc.RunUntilEnd(service);
        EXPECT_EQ(LeftOpenBy(service), "");
    }

    std::string State() const { return virtual_pc::ToUtf8(StateNameOf(view.state().value_or(-1))); }

    void Enter(const std::string& state)
    {
        for (const int slot : state == "HOLV_IDLE"     ? std::vector<int>{enter_active, enter_idle}
                              : state == "HOLV_S3"     ? std::vector<int>{enter_active}
                              : state == "HOLV_ACTIVE" ? std::vector<int>{enter_active}
                              : state == "HOLV_DND"    ? std::vector<int>{enter_active, enter_dnd}
                                                       : std::vector<int>{}) {
            view.Raise(slot);
            pc.RunFor(std::chrono::seconds{2});
        }
        if (state == "HOLV_S3") {
            pc.announcer.PowerEvent(PBT_APMSUSPEND);
            pc.RunFor(std::chrono::seconds{1});
        }
        EXPECT_EQ(State(), state);
    }

    void Kill()
    {
        virtual_pc::Process* const service = view.service();
        {
            const virtual_pc::Hold hold(pc);
            service->Terminate(1);
        }
        pc.RunUntilEnd(*service);
    }

    std::string Differences() { return ::Differences(before, Find(pc)); }

    bool HasJournal() const { return pc.registry.Get(kRestoreKey, kJournalValue).has_value(); }

    const virtual_pc::Image image{.host_path = HOLV_IMAGE,
                                  .resources = HOLV_SOURCE_DIR "/resources"};
    virtual_pc::Machine pc;
    Heard heard{pc};
    ServiceView view{pc};
    Observations before;
};
