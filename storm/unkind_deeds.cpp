// The ends of the service and of the PC, and what else a PC may do to a program.

#include "storm/deeds.h"

#include <array>

namespace {

Lines StartService(const DeedDraw&) { return {"service start"}; }
Lines StopService(const DeedDraw&) { return {"service stop"}; }
Lines RestartService(const DeedDraw& deed)
{
    if (deed.draw.Chance(70)) return {"service stop", "service start"};
    return {"service stop", "service start", "service stop", "service start"};
}

Lines KillAtCall(const DeedDraw& deed)
{
    return {"service kill", "service kill at call " + std::to_string(deed.draw.Between(1, 3000)),
            "service start"};
}

Lines ShutDown(const DeedDraw&) { return {"pc shutdown", "pc boot", "session logon alice"}; }
Lines CutPower(const DeedDraw&) { return {"power cut"}; }
Lines Boot(const DeedDraw&) { return {"pc boot", "session logon alice"}; }

Lines SwitchRun(const DeedDraw& deed)
{
    return {"service run " + deed.draw.Of({"-Service", "-RegServer", "-Version"})};
}

Lines Ctl(const DeedDraw& deed) { return {"ctl " + deed.draw.Of({"status", "restore", "why"})}; }

// --- Faults ---

struct Faulty
{
    const char* function;
    const char* error;
    bool acts;  // it can lie
};

constexpr std::array kFaulty = {
    Faulty{"PowerSetActiveScheme", "5", true},
    Faulty{"PowerGetActiveScheme", "5", false},
    Faulty{"PowerReadACValueIndex", "5", false},
    Faulty{"PowerReadDCValueIndex", "5", false},
    Faulty{"PowerWriteACValueIndex", "5", true},
    Faulty{"PowerWriteDCValueIndex", "5", true},
    Faulty{"PowerCreateRequest", "5", false},
    Faulty{"PowerSetRequest", "5", true},
    Faulty{"PowerClearRequest", "5", true},
    Faulty{"SetMute", "0x88890004", true},
    Faulty{"GetMute", "0x88890004", false},
    Faulty{"GetDefaultAudioEndpoint", "0x80070490", false},
    Faulty{"EnumAudioEndpoints", "0x80004005", false},
    Faulty{"Activate", "0x88890004", false},
    Faulty{"SetWaitableTimer", "5", false},
    Faulty{"CallNtPowerInformation", "0xC0000001", false},
    Faulty{"GetSystemPowerStatus", "5", false},
    Faulty{"SetSuspendState", "5", false},
    Faulty{"DeviceIoControl", "31", false},
    Faulty{"RegGetValueW", "5", false},
    Faulty{"RegSetValueExW", "5", true},
    Faulty{"RegFlushKey", "5", false},
    Faulty{"CreateThread", "8", false},
    Faulty{"WTSQueryUserToken", "1008", false},
    Faulty{"CreateProcessAsUserW", "5", false},
    Faulty{"WriteFile", "112", false},
};

const Faulty& AnyFaulty(Draw& draw)
{
    return kFaulty[static_cast<std::size_t>(draw.Between(0, std::ssize(kFaulty) - 1))];
}

Lines Fault(const DeedDraw& deed)
{
    Draw& draw = deed.draw;
    const Faulty& faulty = AnyFaulty(draw);
    const std::string begin = std::string("fault ") + faulty.function + " " + faulty.error;
    if (faulty.acts && draw.Chance(15)) {
        return {draw.Chance(50) ? std::string("fault ") + faulty.function + " pretends once"
                                : begin + " done once"};
    }
    switch (draw.Between(0, 3)) {
        case 0:
            return {begin + " once"};
        case 1:
            return {begin + " times " + std::to_string(draw.Between(2, 6))};
        case 2:
            return {begin + " rate " + draw.Of({"0.05", "0.2", "0.5"})};
        default:
            return {begin + " for " + draw.Of({"10s", "2m", "1h", "8h"})};
    }
}

Lines NoFaults(const DeedDraw&) { return {"fault clear"}; }

Lines Slow(const DeedDraw& deed)
{
    if (deed.draw.Chance(25)) return {"slow all"};
    const std::string function = AnyFaulty(deed.draw).function;
    return {"slow " + function +
            deed.draw.Of({" 100ms", " 1s", " 5s", " 1s rate 0.1", " 20s rate 0.02"})};
}
Lines Quick(const DeedDraw&) { return {"slow clear"}; }

Lines Notices(const DeedDraw& deed)
{
    return {"notices " + deed.draw.Of({"late 10ms", "late 500ms", "late 3s", "doubled", "merged"})};
}
Lines NoticesAtOnce(const DeedDraw&) { return {"notices clear"}; }

Lines Listing(const DeedDraw& deed)
{
    return {deed.draw.Of({"requests take 1s", "requests take 5s", "requests take 0ms",
                          "requests in japanese", "requests in english"})};
}

}  // namespace

Lines KillService(const DeedDraw& deed)
{
    if (deed.draw.Chance(30)) return {"service kill", "ctl restore"};
    return {"service kill"};
}

std::vector<DeedKind> UnkindKinds()
{
    return {
        {"start", 6, StartService},
        {"stop", 5, StopService, StartService},
        {"restart", 4, RestartService},
        {"kill", 5, KillService, StartService},
        {"kill at call", 2, KillAtCall, StartService},
        {"reboot", 3, ShutDown},
        {"power cut", 3, CutPower, Boot},
        {"switch run", 1, SwitchRun},
        {"ctl", 2, Ctl},
        {"fault", 10, Fault, NoFaults},
        {"slow", 4, Slow, Quick},
        {"notices", 4, Notices, NoticesAtOnce},
        {"listing", 2, Listing},
    };
}
