// The service's life, as the service control manager sees it: how it starts and stops, what happens
// when a step fails, and that a stop works at any moment.

#include "service/module.h"

#include <algorithm>
#include <set>
#include <sstream>

#include "api/agent_api.h"
#include "api/agent_module.h"
#include "log/log.h"
#include "platform/com.h"
#include "platform/module.h"
#include "platform/owned.h"
#include "platform/virtual/com/com.h"
#include "platform/virtual/console/outputs.h"
#include "platform/virtual/core/thread.h"
#include "platform/virtual/processes/libraries.h"
#include "settings/settings.h"
#include "tests/service_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

constexpr auto kChangedMode = static_cast<DWORD>(RPC_E_CHANGED_MODE);

// What the maker's logging library was told, and how much the service had said until then.
Lines g_logger;
void WINAPI StartLogger(const wchar_t* name, int how)
{
    g_logger.push_back("start " + ToUtf8(name) + " " + std::to_string(how) + " at " +
                       std::to_string(Machine::Current().outputs.debug().size()));
}
void WINAPI StopLogger()
{
    Machine& pc = Machine::Current();
    const Hold hold(pc);
    const auto threads = std::ranges::count_if(pc.scheduler.threads(), [](const auto& thread) {
        return thread->process == Thread::Self()->process && thread->state != Thread::State::ended;
    });
    g_logger.push_back("stop at " + std::to_string(pc.outputs.debug().size()) + " with " +
                       std::to_string(threads) + " threads");
}

template <class Function>
FARPROC AsLibraryFunction(Function* function)
{
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(function));
}

// Without a report that repeats the one before.
std::string Distinct(const std::string& reports)
{
    std::istringstream words(reports);
    std::string distinct, last;
    for (std::string word; words >> word; last = word) {
        if (word != last) distinct += word + " ";
    }
    return distinct;
}

class ServiceTest : public ServiceFixture
{
protected:
    // Where threads run free, the handler's report that the service stops may come after the state
    // machine's that it has stopped, or after the last one, when it is refused.
    void ExpectReportsOfAStop()
    {
        const std::string reports = service.Reports();
        if (kRunFree) {
            EXPECT_TRUE(reports.starts_with("running running ")) << reports;
            EXPECT_TRUE(reports.ends_with("stopped ")) << reports;
        } else {
            EXPECT_EQ(reports, "running running stopping stopped stopped ");
        }
    }

    // If the state machine's thread ends before ServiceMain has reported the start, ServiceMain
    // reports nothing more. Free threads may also report the same state a varying number of times.
    void ExpectReportsOfAStart(const std::string& expected)
    {
        std::string reports = service.Reports();
        if (reports.starts_with("running running ")) reports = reports.substr(8);
        if (kRunFree) {
            EXPECT_EQ(Distinct(reports), Distinct(expected));
        } else {
            EXPECT_EQ(reports, expected);
        }
    }

    // How many handles of a kind are open, or their names.
    std::wstring Open(std::string_view kind)
    {
        const Hold hold(pc);
        std::wstring names;
        for (const LeftOpen& open : pc.handles.List()) {
            if (open.kind == kind) names += open.name.substr(0, 8) + L" ";
        }
        return names;
    }
};

TEST_F(ServiceTest, StartsAndStopsInOrderAndGivesEverythingBack)
{
    g_logger.clear();
    pc.libraries.on_disk[LR"(C:\Program Files\Orbeq\Holv\Vexlog.dll)"] = {
        {"StartLogger", AsLibraryFunction(StartLogger)},
        {"StopLogger", AsLibraryFunction(StopLogger)}};
    service.Start();
    EXPECT_EQ(service.Reports(), "running running ");
    EXPECT_EQ(service.Find()->status.dwControlsAccepted, 0x2C5u);
    EXPECT_EQ(service.Find()->status.dwServiceType, SERVICE_WIN32_OWN_PROCESS);
    EXPECT_EQ(service.heard.Said("ServiceMain"), (Lines{"HOLV service global events are created",
                                                        "HOLV service state machine starts"}));
    {
        const Hold hold(pc);
        const auto security = pc.com.SecurityOf(service.Find()->process);
        ASSERT_TRUE(security && !security->implicit) << "clients of other users may call";
        EXPECT_EQ(std::tuple(security->descriptor, security->services, security->authentication,
                             security->impersonation, security->capabilities),
                  std::tuple(false, -1, DWORD{RPC_C_AUTHN_LEVEL_NONE},
                             DWORD{RPC_C_IMP_LEVEL_IDENTIFY}, DWORD{EOAC_NONE}));
    }
    // In the order in which the settings are registered.
    EXPECT_EQ(Open("power setting registration"),
              L"98A7F580 5D3E9A59 245D8541 02731015 29F6C1DB 786E8A1D ");
    service.heard.Forget();
    service.Stop();
    ExpectReportsOfAStop();
    EXPECT_EQ(service.State(), "stopped");
    EXPECT_EQ(service.heard.Said("CNeverSleepModule"),
              (Lines{"SERVICE_CONTROL_STOP", "Service stopped"}));
    EXPECT_EQ(service.heard.Said().back(), "Service stopped");
    EXPECT_TRUE(service.heard.Has("HOLV State Machine Exited"));
    EXPECT_FALSE(service.heard.Has("Service is starting"));
    EXPECT_EQ(pc.processes().back()->exit_code(), 0);
    ASSERT_EQ(g_logger.size(), 2u);
    EXPECT_TRUE(g_logger[0].starts_with("start HOLVLog 1 at "));
    // The program's own, and the one on which the service runs.
    EXPECT_EQ(g_logger[1],
              "stop at " + std::to_string(pc.outputs.debug().size()) + " with 2 threads");
}

TEST_F(ServiceTest, EveryFailureOfTheStartHasItsOutcome)
{
    const std::string no_com = "InitializeCom failed, hr=0x80010106";
    const std::string resumed_in_vain = "HOLV State Machine Exited";
    const struct
    {
        const char* fails;
        std::uint64_t nth;
        std::optional<DWORD> error;
        std::string state;
        std::string reports;
        std::string heard;  // empty for nothing in particular
    } cases[] = {
        {"LoadLibraryW", 1, 5, "running", "running ", ""},
        {"GetSystemPowerStatus", 1, 5, "running", "running ", ""},
        {"RegisterServiceCtrlHandlerExW", 1, 5, "starting", "", "Handler not installed"},
        {"CoInitialize", 1, kChangedMode, "starting", "", no_com},
        {"RegisterPowerSettingNotification", 3, 5, "running", "running ", ""},
        // Call 1 creates the event for the program's end, calls 2 to 8 create slots 0 to 6.
        {"CreateEventW", 1, 5, "running", "running ", ""},
        {"CreateEventW", 4, 5, "stopped", "running stopped stopped ", "CreateEvent (2) failed"},
        {"CreateWaitableTimerW", 6, 5, "stopped", "running stopped stopped ",
         "CreateWaitabletimer (12) failed"},
        {"CreateThread", 1, 5, "stopped", "running stopped ", "Service stopped"},
        // The service runs without the reconciler.
        {"CreateEventW", 10, 5, "running", "running ", "Reconciler   Not started, GLE=5"},
        {"CoInitializeSecurity", 1, 0x80010119, "running", "running ", "failed, hr=0x80010119"},
        {"CoResumeClassObjects", 1, 0x80004005, "stopped 2147500037", "running stopped stopped ",
         resumed_in_vain},
        {"GetMessageW", 1, 5, "stopped", "running stopped stopped ", resumed_in_vain},
    };
    EXPECT_EQ(service.Run(L"-Service"), 0);
    left_open_is_expected = true;  // where the start ends halfway
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.fails) + " " + std::to_string(c.nth));
        pc.faults.Set(c.fails, {.error = c.error, .first = c.nth});
        service.Restart();
        pc.RunFor(1s);
        pc.faults.ClearAll();
        EXPECT_EQ(service.State(), c.state);
        ExpectReportsOfAStart(c.reports);
        EXPECT_TRUE(c.heard.empty() || service.heard.Has(c.heard));
        EXPECT_EQ(service.heard.Has("HOLV State Machine initialized"),
                  c.state != "starting" && std::string(c.fails) != "CreateThread");
        if (c.state == "running") service.Stop();
        pc.ShutDown();
        // Without the event, ServiceMain is cut short; half a start is killed by the shutdown.
        if ((std::string(c.fails) != "CreateEventW" || c.nth != 1) && c.state != "starting") {
            EXPECT_EQ(LeftOpenBy(*pc.processes().back()), "");
        }
    }
}

// There it has no window, and its end must be posted to it all the same.
TEST_F(ServiceTest, RunsAndEndsOnAThreadThatALibraryHasPutIntoTheOtherApartment)
{
    EXPECT_EQ(service.Run(L"-Service"), 0);
    pc.libraries.resident = {L"mscoree.dll"};
    pc.faults.Set("CoInitialize", {.error = kChangedMode});
    service.Restart();
    EXPECT_EQ(service.State(), "running");
    EXPECT_FALSE(service.heard.Has("InitializeCom failed"));
    service.Stop();
    EXPECT_EQ(service.State(), "stopped");

    pc.faults.Set("CoInitialize", {.error = kChangedMode});
    pc.faults.Set("CreateThread", {.error = 5});
    service.Restart();
    pc.RunFor(1s);
    EXPECT_EQ(service.State(), "stopped") << "it ends itself without a state machine";
}

TEST_F(ServiceTest, ACallThatHangsHoldsUpTheStartForTenSecondsAndTheEndForFive)
{
    EXPECT_EQ(service.Run(L"-Service"), 0);
    const std::string initialized = "HOLV State Machine initialized";
    pc.slowness.Set("CoInitializeSecurity", {.typical = 1h});
    service.Restart();
    pc.RunFor(9900ms);
    EXPECT_FALSE(service.heard.Has(initialized)) << "calls are not secured yet";
    pc.RunFor(200ms);
    EXPECT_TRUE(service.heard.Has(initialized)) << "although the call hangs";
    pc.ShutDown();
    pc.slowness.ClearAll();

    // The loop that serves clients ends while the state machine's start hangs.
    pc.slowness.Set("CoResumeClassObjects", {.typical = 1s});
    pc.slowness.Set("CoCreateInstance", {.typical = 1h});
    pc.faults.Set("GetMessageW", {.error = 5});
    service.Restart();
    {
        const Hold hold(pc);
        EXPECT_FALSE(pc.com.Serving(CLSID_HOLVAgentApi)) << "no client before the class is resumed";
    }
    ASSERT_TRUE(pc.RunUntil([&] { return pc.faults.CallsOf("GetMessageW") > 0; }, 2s));
    pc.RunFor(4900ms);
    EXPECT_FALSE(service.heard.Has("Service stopped")) << "the state machine may still restore";
    pc.RunFor(200ms);
    EXPECT_TRUE(service.heard.Has("Service stopped")) << "the system waits no longer";
    left_open_is_expected = true;
}

TEST_F(ServiceTest, ACrashIsToldInTheLogAndEndsTheProcess)
{
    service.Start();
    Process& process = *service.Find()->process;
    EXCEPTION_RECORD record{};
    record.ExceptionCode = 0xC0000005;
    process.Crash(record);
    EXPECT_TRUE(pc.RunUntil([&] { return !process.running(); }, 1s));
    EXPECT_TRUE(process.crashed());
    EXPECT_TRUE(service.heard.Has("code (0xc0000005)"));
    crash_is_expected = left_open_is_expected = true;
}

// Somebody asks for the stop some turns of the other threads after the service was first reported
// running, while the PC is about to be suspended.
std::string StopAfter(Machine& pc, int turns)
{
    ServiceOnPc service(pc);
    EXPECT_EQ(service.Run(L"-Service"), 0);
    EXPECT_EQ(pc.services.Start(kService), DWORD{ERROR_SUCCESS});
    Process& stopper = pc.Start([&] {
        const auto running = [&] {
            const Hold hold(pc);
            return service.Find()->running();
        };
        while (!running()) Sleep(0);
        for (int turn = 0; turn < turns; ++turn) Sleep(0);
        EXPECT_EQ(pc.services.Control(kService, SERVICE_CONTROL_STOP), DWORD{ERROR_SUCCESS});
        return 0;
    });
    Process& late = pc.Start([&] {
        for (int turn = 0; turn < turns; ++turn) Sleep(0);
        pc.announcer.PowerEvent(PBT_APMSUSPEND);
        return 0;
    });
    pc.RunUntilEnd(stopper);
    pc.RunUntilEnd(late);
    service.AwaitEnd();
    EXPECT_EQ(service.State(), "stopped");
    return service.Reports();
}

TEST(ServiceRaceTest, AStopGetsThroughAtEveryMomentOfTheStart)
{
    std::set<std::string> seen;
    StormOnPc({.seeds = 60, .free = 10}, [&](Machine& pc, const Machine::Options& life) {
        const std::string reports = StopAfter(pc, static_cast<int>(life.seed % 20));
        EXPECT_TRUE(reports.starts_with("running ")) << reports;
        EXPECT_TRUE(reports.ends_with("stopped ")) << reports;
        EXPECT_TRUE(life.free || reports.find("stopping") != reports.npos) << reports;
        // A report that was on its way at the stop is corrected at once.
        const std::size_t late = reports.find("stopping running ");
        EXPECT_TRUE(late == reports.npos || reports.substr(late + 17).starts_with("stopp"))
            << reports;
        EXPECT_EQ(reports.find("stopped running"), reports.npos) << reports;
        seen.insert(reports);
    });
    if (!kRunFree) {
        EXPECT_GE(seen.size(), 2u) << "the moments differ: " << testing::PrintToString(seen);
    }
}

// A program that switches the feature as a whole to `value` ten times, or until its service is
// gone.
Process& StartSwitching(Machine& pc, LONG value, std::atomic<int>& ready,
                        std::atomic<int>& switched)
{
    return pc.Start([&ready, &switched, value] {
        CoInitialize(nullptr);
        OwnedInterface<IDispatch> agent;
        EXPECT_EQ(CoCreateInstance(CLSID_HOLVAgentApi, nullptr, CLSCTX_LOCAL_SERVER, IID_IDispatch,
                                   reinterpret_cast<void**>(agent.Receive())),
                  S_OK);
        ++ready;
        VARIANT arguments[2] = {};
        for (VARIANT& argument : arguments) argument.vt = VT_I4;
        arguments[0].lVal = value;
        arguments[1].lVal = E_HOLV_STATE;
        for (int i = 0; i < 10 && agent; ++i) {
            DISPPARAMS call{arguments, nullptr, 2, 0};
            const HRESULT result =
                agent.Get()->Invoke(DISPID_SetNeverSleepParam, IID_NULL, 0, DISPATCH_METHOD, &call,
                                    nullptr, nullptr, nullptr);
            if (FAILED(result)) break;
            ++switched;
        }
        agent.Reset();
        CoUninitialize();
        return 0;
    });
}

// Controls, announcements and clients that switch the feature, all at once. Returns how many of
// them succeeded.
int SwitchAmidStop(Machine& pc)
{
    ServiceOnPc service(pc);
    service.Start();
    std::atomic<int> ready = 0;
    std::atomic<int> switched = 0;
    std::vector<Process*> others;
    for (const LONG value : {0, 1}) others.push_back(&StartSwitching(pc, value, ready, switched));
    EXPECT_TRUE(pc.RunUntil([&] { return ready == 2; }, 1min));
    for (const DWORD event : {PBT_APMSUSPEND, PBT_APMRESUMEAUTOMATIC, PBT_APMRESUMESUSPEND}) {
        others.push_back(&pc.Start([&pc, event] {
            for (int i = 0; i < 10; ++i) {
                pc.announcer.PowerEvent(event);
                pc.announcer.TimeChanged(pc.clock(), pc.clock());
                pc.services.Control(kService, SERVICE_CONTROL_INTERROGATE);
                Sleep(0);
            }
            return 0;
        }));
    }
    others.push_back(&pc.Start([&pc] {
        for (int i = 0; i < 5; ++i) Sleep(0);
        EXPECT_EQ(pc.services.Control(kService, SERVICE_CONTROL_STOP), DWORD{ERROR_SUCCESS});
        return 0;
    }));
    for (const Process* other : others) pc.RunUntilEnd(*other);
    service.AwaitEnd();
    EXPECT_EQ(service.State(), "stopped");
    return switched;
}

TEST(ServiceRaceTest, AStopAmidEverythingElseEndsTheServiceAndGivesAllBack)
{
    int switched = 0;
    StormOnPc({.seeds = 40, .free = 5},
              [&](Machine& pc, const Machine::Options&) { switched += SwitchAmidStop(pc); });
    // Where threads run free, the host decides.
    EXPECT_TRUE(kRunFree || switched > 0) << "no client got through before the stop";
}

// --- Without the service: a server of component objects ---

TEST_F(ServiceTest, AsAServerItEndsWhenItsLastClientHasLetGo)
{
    const auto serve = [] { return wWinMain(nullptr, nullptr, nullptr, 0); };
    Process& server = pc.Start(serve);
    pc.RunFor(1s);
    EXPECT_TRUE(server.running());
    EXPECT_TRUE(service.Find() == nullptr);
    EXPECT_FALSE(service.heard.Has("global events are created"));
    EXPECT_FALSE(service.heard.Has("HOLV State Machine initialized"));
    const Instant before = pc.now();
    RunAsProcess([&] {
        LockAgentModule();
        LockAgentModule();
        UnlockAgentModule();
        Sleep(100);
        EXPECT_TRUE(server.running());
        UnlockAgentModule();
    });
    pc.RunUntilEnd(server);
    EXPECT_EQ(pc.now() - before, 1100ms) << "after a pause";
    EXPECT_EQ(server.exit_code(), 0);

    const std::pair<const char*, DWORD> failures[] = {{"CoResumeClassObjects", 0x80010108},
                                                      {"CreateThread", 0x80004005},
                                                      {"CreateEventW", 0x80004005}};
    for (const auto& [function, result] : failures) {
        pc.faults.Set(function, {.error = result});
        const Instant began = pc.now();
        Process& failing = pc.Start(serve);
        pc.RunUntilEnd(failing);
        EXPECT_EQ(pc.now(), began) << "the server ends at once";
        EXPECT_EQ(static_cast<DWORD>(failing.exit_code()), result) << function;
    }
}

TEST_F(ServiceTest, OnlyAWholeTextMakesItAService)
{
    constexpr const wchar_t* kValue = L"LocalService";
    const auto text = [](std::wstring_view words, DWORD type) {
        return RegistryValue::String(words, type);
    };
    RegistryValue cut = text(L"HOLVService", REG_SZ);
    cut.data.resize(cut.data.size() - sizeof(wchar_t));
    const std::pair<RegistryValue, bool> cases[] = {
        {text(L"HOLVService", REG_SZ), true},
        {text(L"%X%", REG_EXPAND_SZ), true},
        {text(L"", REG_SZ), true},
        {{REG_SZ, {}}, true},
        {cut, false},
        {RegistryValue::Dword(1), false},
        {text(L"HOLVService", REG_MULTI_SZ), false},
    };
    for (const auto& [value, is_service] : cases) {
        pc.registry.Set(kAppIdKey, kValue, value);
        // The process was not started as a service, so it ends with the dispatcher's error; a plain
        // server stays.
        Process& process = *pc.StartInstalled(service.image.path, L"HOLVService.exe");
        pc.RunFor(1s);
        EXPECT_EQ(!process.running(), is_service) << value.type << " " << value.data.size();
        if (is_service) {
            EXPECT_EQ(process.exit_code(), ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
        }
        pc.ShutDown();
    }
    left_open_is_expected = true;  // the servers were ended from outside
}

}  // namespace
