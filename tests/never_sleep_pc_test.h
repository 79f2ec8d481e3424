// The fixture of tests of the whole service on a PC that sleeps and wakes: the service as an image,
// the platform device, and the promises that hold whenever the PC is settled.
#pragma once

#include "pc/service_view.h"
#include "platform/virtual/devices/device.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/power/sleep.h"
#include "platform/virtual/power/user.h"
#include "platform/virtual/registry/registry.h"
#include "platform/virtual/services/service_manager.h"
#include "tests/virtual_pc_test.h"

class NeverSleepPc
{
public:
    explicit NeverSleepPc(const virtual_pc::Machine::Options& options) : pc(options), view(pc)
    {
        pc.devices.AddHolvDevice(LR"(ACPI\QRX5071\1)");
        pc.journal.Listen([](const virtual_pc::Effect& effect) {
            if (effect.kind != "sleep") return;
            EXPECT_FALSE(effect.Text("why").starts_with(L"a program, "))
                << "the service's sleep ends as any other, and no program can refuse it";
        });
    }

    void Set(const wchar_t* setting, DWORD value)
    {
        pc.registry.SetDword(kUserKey, setting, value);
    }

    void StartService()
    {
        m_service = &StartAsService(
            pc,
            virtual_pc::Image{.host_path = HOLV_IMAGE, .resources = HOLV_SOURCE_DIR "/resources"});
        pc.RunFor(std::chrono::seconds{1});
    }

    // Stops the service, which must then have restored plans, requests, mutes and the device's
    // mode.
    void StopService()
    {
        pc.services.Control(L"HOLVService", SERVICE_CONTROL_STOP);
        pc.RunUntilEnd(*m_service);
        for (const POWER_REQUEST_TYPE type :
             {PowerRequestSystemRequired, PowerRequestAwayModeRequired}) {
            EXPECT_FALSE(pc.power.Held(type));
        }
        EXPECT_FALSE(m_service->left_open().empty()) << "the log's file";
        ExpectNothingLeft(pc);
    }

    // A member of the state record.
    std::int32_t Member(const std::string& name) const
    {
        const std::string symbol =
            "_ZN16CNeverSleepState" + std::to_string(name.size()) + name + "E";
        return *static_cast<const std::atomic<std::int32_t>*>(view.Symbol(symbol.c_str()));
    }

    std::string State() const
    {
        const std::wstring_view name = StateNameOf(view.state().value_or(-1));
        return {name.begin(), name.end()};
    }

    // What each state promises of the plan, the device and the requests.
    void ExpectConsistent(const std::string& when) const
    {
        SCOPED_TRACE(when + ", " + State() + " at " + virtual_pc::FormatCalendar(pc.clock()));
        if (pc.sleep.phase() != virtual_pc::SleepState::Phase::awake) return;
        const std::string state = State();
        EXPECT_NE(state, "HOLV_S3") << "awake";
        EXPECT_NE(state, "HOLV_INIT");
        const bool normal = state == "S0_NORMAL";
        EXPECT_EQ(pc.power.active().name, normal ? L"Balanced" : L"Power saver");
        EXPECT_EQ(pc.devices.All().front()->Mode().value_or(0),
                  static_cast<DWORD>(normal ? 0 : view.state().value_or(0)));
        const auto told = pc.registry.Get(LR"(HKLM\Software\Orbeq\Holv\State)", L"Now");
        const std::wstring state_told = L"\"state\":\"" + std::wstring(state.begin(), state.end());
        EXPECT_TRUE(told && told->Text().find(state_told) != std::wstring::npos) << "published";
        const bool dnd_sleeps = pc.registry.GetDword(kUserKey, L"DndToS3").value_or(0) != 0;
        const bool on_battery = pc.registry.GetDword(kUserKey, L"EnableHOLVOnDc").value_or(1) != 0;
        const bool powered =
            pc.power.line == 1 || (on_battery && !Member("m_bBatteryThresholdCrossed"));
        const bool ready = powered && !(dnd_sleeps && Member("m_bSeenDndStart"));
        // Where the hours are slept through, a request may be left released at their end.
        const auto agrees = [&](POWER_REQUEST_TYPE type) {
            return pc.power.Held(type) == ready || (dnd_sleeps && ready);
        };
        EXPECT_TRUE(agrees(PowerRequestAwayModeRequired)) << "ready: " << ready;
        EXPECT_TRUE(agrees(PowerRequestSystemRequired)) << "ready: " << ready;
    }

    // The same, with somebody at the PC.
    void ExpectNormalUse(const std::string& when) const
    {
        ExpectConsistent(when);
        EXPECT_EQ(State(), "S0_NORMAL") << when << " at " << virtual_pc::FormatCalendar(pc.clock());
        EXPECT_FALSE(pc.sleep.away());
        EXPECT_TRUE(pc.user.display_on());
    }

    virtual_pc::Machine pc;
    Heard heard{pc};
    ServiceView view;

private:
    virtual_pc::Process* m_service = nullptr;
};
