// The virtual PC's service manager against what is known of the real one: its database, how
// services start, stop and are deleted, what it refuses, and the controls that it sends.

#include "platform/virtual/services/service_manager.h"

#include "platform/com.h"
#include "platform/module.h"
#include "platform/owned.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/registry/registry.h"
#include "platform/virtual/sessions/session.h"
#include "tests/answers.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

constexpr const wchar_t* kKey = LR"(HKLM\SYSTEM\CurrentControlSet\Services\Probe)";

// What the service "Probe" does and notices. Its program is a function of the test.
struct Probe
{
    DWORD accepts = SERVICE_ACCEPT_STOP;
    bool reports_running = true;
    bool stops = true;  // when told to
    DWORD starts_ms = 0;
    DWORD lingers_ms = 0;  // in its handler, when it has stopped
    std::vector<GUID> settings;

    SERVICE_STATUS_HANDLE handle = nullptr;
    HANDLE stop = nullptr;
    std::vector<std::wstring> arguments;
    std::string told;  // control:event, and a power setting's first part and value
    DWORD handler_thread = 0;
    DWORD main_thread = 0;
    BOOL dispatched = FALSE;
};
Probe* g_probe = nullptr;

void ReportState(DWORD state, DWORD exit_code = 0)
{
    SERVICE_STATUS status{SERVICE_WIN32_OWN_PROCESS, state, g_probe->accepts, exit_code, 0, 0, 0};
    EXPECT_TRUE(SetServiceStatus(g_probe->handle, &status));
}

DWORD WINAPI Handler(DWORD control, DWORD event, LPVOID data, LPVOID context)
{
    EXPECT_EQ(context, g_probe);
    Sleep(5);
    g_probe->handler_thread = GetCurrentThreadId();
    g_probe->told += std::to_string(control) + ":" + std::to_string(event);
    if (event == PBT_POWERSETTINGCHANGE) {
        const auto* setting = static_cast<const POWERBROADCAST_SETTING*>(data);
        g_probe->told += ":" + std::to_string(setting->PowerSetting.Data1) + "=" +
                         std::to_string(setting->Data[0]) + "/" +
                         std::to_string(setting->DataLength);
    }
    g_probe->told += " ";
    if (control != SERVICE_CONTROL_STOP && control != SERVICE_CONTROL_SHUTDOWN) return NO_ERROR;
    ReportState(SERVICE_STOP_PENDING);
    if (g_probe->stops) SetEvent(g_probe->stop);
    if (g_probe->lingers_ms) Sleep(g_probe->lingers_ms);
    return NO_ERROR;
}

void WINAPI Main(DWORD argc, LPWSTR* argv)
{
    Probe& probe = *g_probe;
    probe.arguments.assign(argv, argv + argc);
    probe.main_thread = GetCurrentThreadId();
    const OwnedHandle stop(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    probe.stop = stop.Get();
    probe.handle = RegisterServiceCtrlHandlerExW(L"Probe", Handler, &probe);
    std::vector<HPOWERNOTIFY> registrations;
    for (const GUID& setting : probe.settings) {
        registrations.push_back(
            RegisterPowerSettingNotification(probe.handle, &setting, DEVICE_NOTIFY_SERVICE_HANDLE));
    }
    if (probe.starts_ms) Sleep(probe.starts_ms);
    if (probe.reports_running) ReportState(SERVICE_RUNNING);
    WaitForSingleObject(stop.Get(), INFINITE);
    for (const HPOWERNOTIFY registration : registrations) {
        EXPECT_TRUE(UnregisterPowerSettingNotification(registration));
    }
    ReportState(SERVICE_STOPPED, 7);
}

int Dispatch()
{
    wchar_t name[] = L"Probe";
    const SERVICE_TABLE_ENTRYW table[] = {{name, Main}, {nullptr, nullptr}};
    g_probe->dispatched = StartServiceCtrlDispatcherW(table);
    return 3;
}

class ServiceManagerTest : public AnswersTest
{
protected:
    ServiceManagerTest()
    {
        g_probe = &m_probe;
        pc.Install(L"C:\\Probe.exe", Dispatch);
    }

    ServiceConfig Config(const std::wstring& name, std::vector<std::wstring> dependencies = {})
    {
        ServiceConfig config;
        config.name = name;
        config.display_name = L"The " + name;
        config.start = SERVICE_AUTO_START;
        config.path = L"\"C:\\" + name + L".exe\"";
        config.dependencies = std::move(dependencies);
        return config;
    }

    void Start(const std::vector<std::wstring>& arguments = {})
    {
        if (!pc.services.Find(L"Probe")) pc.services.Create(Config(L"Probe", {L"RPCSS"}));
        EXPECT_EQ(pc.services.Start(L"Probe", arguments), DWORD{ERROR_SUCCESS});
        pc.RunFor(10ms);
    }

    void Stop()
    {
        EXPECT_EQ(pc.services.Control(L"Probe", SERVICE_CONTROL_STOP), DWORD{ERROR_SUCCESS});
        pc.RunFor(50ms);
    }

    std::string State(const wchar_t* name = L"Probe")
    {
        const auto service = pc.services.Find(name);
        return service ? ToUtf8(ServiceStateName(service->status.dwCurrentState)) + " " +
                             std::to_string(service->status.dwWin32ExitCode)
                       : "absent";
    }

    Probe m_probe;
};

TEST_F(ServiceManagerTest, AServiceLivesBetweenItsDispatcherAndItsMainRoutine)
{
    Start({L"one", L"two words"});
    EXPECT_EQ(State(), "running 0");
    EXPECT_EQ(m_probe.arguments, (std::vector<std::wstring>{L"Probe", L"one", L"two words"}));
    const Process& process = *pc.processes().back();
    EXPECT_EQ(process.command_line(), L"\"C:\\Probe.exe\"");
    Stop();
    EXPECT_EQ(State(), "stopped 7");
    EXPECT_EQ(m_probe.handler_thread, process.first_thread_id());
    EXPECT_NE(m_probe.main_thread, process.first_thread_id());
    EXPECT_EQ(m_probe.told, "1:0 ");
    EXPECT_TRUE(m_probe.dispatched) << "it returns when the service has stopped";
    EXPECT_EQ(process.exit_code(), 3);
}

TEST_F(ServiceManagerTest, AShutdownWaitsAsLongAsTheVersionOrTheRegistrySays)
{
    const std::tuple<DWORD, const wchar_t*, Duration> cases[] = {{kWindows7, nullptr, 20s},
                                                                 {kWindows10, nullptr, 5s},
                                                                 {kWindows10, L"12000", 12s},
                                                                 {kWindows10, L"soon", 5s}};
    m_probe.stops = false;
    m_probe.accepts |= SERVICE_ACCEPT_SHUTDOWN;
    for (const auto& [version, set, patience] : cases) {
        pc.os_version = version;
        if (set) {
            pc.registry.SetString(LR"(HKLM\SYSTEM\CurrentControlSet\Control)",
                                  L"WaitToKillServiceTimeout", set);
        }
        Start();
        const Instant before = pc.now();
        pc.ShutDown();
        EXPECT_EQ(pc.now() - before, patience);
        EXPECT_EQ(m_probe.told, "5:0 ");
        m_probe.told.clear();
    }
}

TEST_F(ServiceManagerTest, ADeletedServiceGoesWhenItHasStoppedAndNobodyHasItOpen)
{
    RunAsProcess([&] {
        const OwnedServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
        const auto create = [&](DWORD access = SERVICE_ALL_ACCESS) {
            return CreateServiceW(manager.Get(), L"Probe", L"The Probe", access,
                                  SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START,
                                  SERVICE_ERROR_NORMAL, L"\"C:\\Probe.exe\"", nullptr, nullptr,
                                  L"RPCSS\0", nullptr, nullptr);
        };
        OwnedServiceHandle service(create());
        // Deleted while it runs and has open handles: the entry disappears when both are over.
        EXPECT_EQ(pc.services.Start(L"Probe"), DWORD{ERROR_SUCCESS});
        Sleep(10);
        Expect({ANSWER(create(), 0, ERROR_SERVICE_EXISTS),
                ANSWER(DeleteService(service.Get()), TRUE),
                ANSWER(DeleteService(service.Get()), FALSE, ERROR_SERVICE_MARKED_FOR_DELETE),
                ANSWER(create(), 0, ERROR_SERVICE_MARKED_FOR_DELETE)});
        EXPECT_EQ(pc.registry.GetDword(kKey, L"DeleteFlag"), 1u);
        SERVICE_STATUS status{};
        EXPECT_TRUE(ControlService(service.Get(), SERVICE_CONTROL_STOP, &status));
        // When its handler has returned; threads that run free may have gone on from there.
        EXPECT_TRUE(status.dwCurrentState == SERVICE_STOP_PENDING ||
                    (kRunFree && status.dwCurrentState == SERVICE_STOPPED));
        Sleep(10);
        EXPECT_EQ(State(), "stopped 7");
        service.Reset();
        EXPECT_EQ(State(), "absent");
        EXPECT_FALSE(pc.registry.HasKey(kKey));

        const OwnedServiceHandle weak(create(SERVICE_QUERY_CONFIG));
        Expect({ANSWER(DeleteService(weak.Get()), FALSE, ERROR_ACCESS_DENIED),
                ANSWER(ControlService(weak.Get(), SERVICE_CONTROL_STOP, &status), FALSE,
                       ERROR_ACCESS_DENIED),
                ANSWER(StartServiceCtrlDispatcherW(nullptr), FALSE, ERROR_INVALID_PARAMETER),
                ANSWER(Dispatch(), 3, ERROR_FAILED_SERVICE_CONTROLLER_CONNECT),
                ANSWER(RegisterServiceCtrlHandlerExW(L"Probe", Handler, nullptr), 0,
                       ERROR_SERVICE_NOT_IN_EXE)});
    });
    pc.services.Delete(L"Probe");
}

TEST_F(ServiceManagerTest, NamesThatAreBadOrTakenAndCirclesAreRefused)
{
    pc.registry.SetDword(kKey, L"DeleteFlag", 1);  // what a PC that was switched off has kept
    EXPECT_EQ(pc.services.Create(Config(L"Bad/name")), DWORD{ERROR_INVALID_NAME});
    ServiceConfig same = Config(L"Other");
    same.display_name = L"remote procedure call (RPC)";
    EXPECT_EQ(pc.services.Create(same), DWORD{ERROR_DUPLICATE_SERVICE_NAME});
    EXPECT_EQ(pc.services.Create(Config(L"Other", {L"OTHER"})), DWORD{ERROR_CIRCULAR_DEPENDENCY});
}

TEST_F(ServiceManagerTest, AControlReachesTheProcessThatRunsNotTheOneThatIsEnding)
{
    m_probe.lingers_ms = 5000;
    Start();
    Stop();
    Start();
    const Process& second = *pc.processes().back();
    m_probe.lingers_ms = 0;
    pc.RunFor(10s);
    EXPECT_EQ(std::ranges::count_if(pc.processes(), [](const auto& p) { return p->running(); }), 1)
        << "the first has ended, its handler having returned";
    Stop();
    EXPECT_EQ(m_probe.handler_thread, second.first_thread_id());
    EXPECT_EQ(State(), "stopped 7");
}

TEST_F(ServiceManagerTest, AControlIsRefusedByStateThenByWhatIsAccepted)
{
    const auto send = [&](DWORD control) { return pc.services.Control(L"Probe", control); };
    EXPECT_EQ(send(SERVICE_CONTROL_STOP), DWORD{ERROR_SERVICE_DOES_NOT_EXIST});
    pc.services.Create(Config(L"Probe", {L"RPCSS"}));
    EXPECT_EQ(send(SERVICE_CONTROL_STOP), DWORD{ERROR_SERVICE_NOT_ACTIVE});
    m_probe.starts_ms = 100;
    m_probe.stops = false;
    Start();
    EXPECT_EQ(send(SERVICE_CONTROL_STOP), DWORD{ERROR_SERVICE_CANNOT_ACCEPT_CTRL});
    EXPECT_EQ(pc.services.Start(L"Probe"), DWORD{ERROR_SERVICE_ALREADY_RUNNING});
    pc.RunFor(200ms);
    const std::pair<DWORD, DWORD> cases[] = {
        {0, ERROR_INVALID_PARAMETER},
        {SERVICE_CONTROL_PAUSE, ERROR_INVALID_SERVICE_CONTROL},
        {SERVICE_CONTROL_INTERROGATE, ERROR_SUCCESS},
        {SERVICE_CONTROL_SHUTDOWN, ERROR_INVALID_PARAMETER},
        {SERVICE_CONTROL_PARAMCHANGE, ERROR_INVALID_SERVICE_CONTROL},
        {SERVICE_CONTROL_POWEREVENT, ERROR_INVALID_PARAMETER},
        {127, ERROR_INVALID_PARAMETER},
        {128, ERROR_SUCCESS},
        {256, ERROR_INVALID_PARAMETER},
        {SERVICE_CONTROL_STOP, ERROR_SUCCESS},
    };
    for (const auto& [control, error] : cases) EXPECT_EQ(send(control), error) << control;
    pc.RunFor(100ms);
    EXPECT_EQ(m_probe.told, "4:0 128:0 1:0 ");
    EXPECT_EQ(send(SERVICE_CONTROL_STOP), DWORD{ERROR_SERVICE_CANNOT_ACCEPT_CTRL});
    RunAsProcess([&] {
        SERVICE_STATUS status{SERVICE_WIN32_OWN_PROCESS, 8, 0, 0, 0, 0, 0};
        Expect({ANSWER(SetServiceStatus(m_probe.handle, &status), FALSE, ERROR_INVALID_DATA)});
        SetEvent(m_probe.stop);
        Sleep(10);
        status.dwCurrentState = SERVICE_RUNNING;  // of a run that is over
        Expect({ANSWER(SetServiceStatus(m_probe.handle, &status), FALSE, ERROR_INVALID_HANDLE)});
    });
    EXPECT_EQ(State(), "stopped 7");
}

TEST_F(ServiceManagerTest, ABootStartsWhatStartsByItselfAfterWhatItDependsOn)
{
    m_probe.starts_ms = 20;
    pc.Install(L"C:\\Ends.exe", [] { return 0; });
    pc.Install(L"C:\\Fails.exe", []() -> int {
        Machine::Current().faults.Set("RegisterServiceCtrlHandlerExW", {.raise = true});
        return Dispatch();
    });
    pc.Install(L"C:\\After.exe", [] { return 0; });
    ServiceConfig by_hand = Config(L"ByHand");
    by_hand.start = SERVICE_DEMAND_START;
    for (const ServiceConfig& config :
         {Config(L"After", {L"Probe"}), Config(L"Probe", {L"RPCSS"}), Config(L"Ends"),
          Config(L"Missing"), Config(L"Nowhere", {L"Nobody"}), Config(L"Lost", {L"Missing"}),
          by_hand}) {
        EXPECT_EQ(pc.services.Create(config), DWORD{ERROR_SUCCESS});
    }
    std::vector<std::wstring> started;
    pc.journal.Listen([&](const Effect& effect) {
        if (effect.kind == "process" && effect.Text("what") == L"started") {
            started.push_back(effect.Text("path"));
        }
    });
    pc.services.Boot();
    pc.RunFor(10ms);
    EXPECT_EQ(State(L"After"), "starting 0") << "it waits";
    pc.RunFor(1s);
    EXPECT_EQ(started,
              (std::vector<std::wstring>{L"C:\\Probe.exe", L"C:\\Ends.exe", L"C:\\After.exe"}));
    EXPECT_EQ(State(), "running 0");
    EXPECT_EQ(State(L"Ends"), "stopped 1053") << "it never came to its dispatcher";
    EXPECT_EQ(State(L"Missing"), "stopped 2");
    EXPECT_EQ(State(L"Nowhere"), "stopped 1075");
    EXPECT_EQ(State(L"Lost"), "stopped 1068");
    EXPECT_EQ(State(L"ByHand"), "stopped 0");
    Stop();
    m_probe.reports_running = false;
    crash_is_expected = left_open_is_expected = true;
    pc.services.Create(Config(L"Fails"));
    EXPECT_EQ(pc.services.Start(L"Fails"), DWORD{ERROR_SUCCESS});
    pc.RunFor(1s);
    EXPECT_EQ(State(L"Fails"), "stopped 1067");
}

TEST_F(ServiceManagerTest, AHandlerHearsWhatItAcceptsAndTheSettingsItAskedFor)
{
    const GUID known{1, 2, 3, {}};
    const GUID unknown{2, 2, 3, {}};
    DWORD value = 5;
    pc.announcer.Provide(known, [&] { return SettingBytes(value); });
    m_probe.accepts = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SESSIONCHANGE;
    m_probe.settings = {known, unknown};
    const auto hears = [&](DWORD accepts) {
        m_probe.accepts = accepts;
        m_probe.told.clear();
        Start();
        bool handled = false;
        pc.announcer.PowerEvent(PBT_APMSUSPEND, [&] { handled = true; });
        EXPECT_EQ(handled, (accepts & SERVICE_ACCEPT_POWEREVENT) == 0) << "only then at once";
        pc.session.Logon(L"alice");
        pc.announcer.TimeChanged(9min, 2min);
        value = 6;
        pc.announcer.SettingChanged(known);
        pc.announcer.SettingChanged(unknown);
        value = 5;
        pc.RunFor(100ms);
        EXPECT_TRUE(handled);
        Stop();
        pc.session.Logoff();
        pc.announcer.SettingChanged(known);
        pc.RunFor(1ms);
        return m_probe.told;
    };
    const std::string all = "13:32787:1=5/4 ";
    EXPECT_EQ(hears(SERVICE_ACCEPT_STOP), all + "13:32787:1=6/4 1:0 ");
    EXPECT_EQ(hears(0x2C1), all + "13:4 14:5 16:0 13:32787:1=6/4 1:0 ");
    RunAsProcess([&] {
        Expect({ANSWER(RegisterPowerSettingNotification(nullptr, &known, 1), 0,
                       ERROR_INVALID_HANDLE)});
    });
}

TEST_F(ServiceManagerTest, AnnouncementsComeLateDoubledAndMerged)
{
    const GUID known{1, 2, 3, {}};
    DWORD value = 5;
    pc.announcer.Provide(known, [&] { return SettingBytes(value); });
    m_probe.accepts = SERVICE_ACCEPT_STOP;
    m_probe.settings = {known};
    const auto hears = [&](const NoticeDelivery& how, Duration soon) {
        Start();
        pc.RunFor(100ms);
        m_probe.told.clear();
        {
            const Hold hold(pc);
            pc.announcer.delivery = how;
            for (value = 6; value < 8; ++value) pc.announcer.SettingChanged(known);
        }
        pc.RunFor(soon);
        std::string told = m_probe.told;
        pc.announcer.delivery = {};
        Stop();
        pc.RunFor(1h);
        return told;
    };
    const std::string six = "13:32787:1=6/4 ";
    const std::string seven = "13:32787:1=7/4 ";
    EXPECT_EQ(hears({}, 100ms), six + seven);
    EXPECT_EQ(hears({.doubled = true}, 100ms), six + six + seven + seven);
    EXPECT_EQ(hears({.merged = true}, 100ms), seven);
    EXPECT_EQ(hears({.late = 2s}, 1999ms), "");
    EXPECT_EQ(hears({.late = 2s}, 2100ms), six + seven);
    EXPECT_EQ(hears({.late = 2s, .doubled = true, .merged = true}, 3s), seven);
}

}  // namespace
