// What is changed on the PC by its user, by other programs and by policies.

#include "storm/deeds.h"

using namespace std::chrono_literals;

namespace {

std::string PlanValue(Draw& draw)
{
    const std::string source = draw.Of({" ac ", " dc "});
    switch (draw.Between(0, 5)) {
        case 0:
            return source + "brightness " + std::to_string(draw.Between(0, 100));
        case 1:
            return source + "sleep-timeout " + draw.Of({"0", "60", "300", "900", "1800", "7200"});
        case 2:
            return source + "processor-min " + draw.Of({"0", "5", "50", "100"});
        case 3:
            return source + "password-on-wake " + draw.Of({"0", "1"});
        case 4:
            return source + draw.Of({"away-mode ", "wake-timers ", "hybrid-sleep "}) +
                   draw.Of({"0", "1"});
        default:
            return source + "display-timeout " + draw.Of({"0", "60", "600"});
    }
}

// --- Plans ---

Lines ChoosePlan(const DeedDraw& deed)
{
    return {"plan active " + Quoted(deed.draw.Of(deed.home.plans))};
}

Lines EditPlan(const DeedDraw& deed)
{
    return {"plan set " + Quoted(deed.draw.Of(deed.home.plans)) + PlanValue(deed.draw)};
}

Lines MakePlan(const DeedDraw& deed)
{
    const std::string name = "Made " + std::to_string(deed.draw.Between(1, 3));
    Lines lines = {"plan copy " + Quoted(deed.draw.Of(deed.home.plans)) + " " + Quoted(name) +
                   " 5D0C0000-0000-4000-8000-00000000000" + name.back()};
    if (deed.draw.Chance(60)) lines.push_back("plan active " + Quoted(name));
    return lines;
}

Lines DropPlan(const DeedDraw& deed)
{
    return {"plan delete " + Quoted("Made " + std::to_string(deed.draw.Between(1, 3)))};
}

Lines PlanPolicy(const DeedDraw& deed)
{
    return {"plan policy " + Quoted(deed.draw.Of(deed.home.plans))};
}
Lines NoPolicy(const DeedDraw&) { return {"plan free"}; }

// --- Settings ---

std::string Interval(Draw& draw)
{
    const std::int64_t from = draw.Between(0, 1440);
    return draw.Chance(50) ? "1320 360"
                           : std::to_string(from) + " " + std::to_string(draw.Between(0, 1440));
}

Lines ByClient(const DeedDraw& deed)
{
    if (deed.draw.Chance(20)) return {"client interval " + Interval(deed.draw)};
    return {"client set " +
            deed.draw.Of({"E_HOLV_STATE", "E_AUDIO", "E_DONOTDISTURB", "E_ENTER_S3_ON_DND",
                          "E_ENABLE_HOLV_ON_DC"}) +
            " " + deed.draw.Of({"0", "1"})};
}

Lines FeatureOff(const DeedDraw&) { return {"client set E_HOLV_STATE 0"}; }
Lines FeatureOn(const DeedDraw&) { return {"client set E_HOLV_STATE 1"}; }

Lines OtherClient(const DeedDraw& deed)
{
    const std::string reaction =
        deed.draw.Of({"listens", "cancels", "clears", "fails", "calls-back", "leaves"});
    switch (deed.draw.Between(0, 5)) {
        case 0:
            return {"client advise A " + reaction};
        case 1:
            return {"client unadvise A"};
        case 2:
            return {"client event " + std::to_string(deed.draw.Between(0, 12))};
        case 3:
            return {"client quit"};
        case 4:
            return {"client end"};
        default:
            return {"client release"};
    }
}

// Read at the service's next start.
Lines Setting(const DeedDraw& deed)
{
    const std::string root = R"(reg set HKLM\Software\Orbeq\Holv\User )";
    switch (deed.draw.Between(0, 3)) {
        case 0:
            return {root + "SuspendBatteryThreshold dword " +
                    std::to_string(deed.draw.Between(0, 100))};
        case 1:
            return {root + "MaxCpuPowerLimit dword " + std::to_string(deed.draw.Between(0, 100))};
        case 2:
            return {root + "LoggingLevel dword " + std::to_string(deed.draw.Between(0, 6))};
        default:
            return {root +
                    deed.draw.Of({"MuteAudio", "DndToS3", "EnableHOLVOnDc", "EnableNeverSleep",
                                  "EnableDoNotDisturb"}) +
                    " dword " + deed.draw.Of({"0", "1"})};
    }
}

// --- Sound, devices ---

Lines Mute(const DeedDraw& deed)
{
    return {"audio " + deed.draw.Of({"mute ", "unmute "}) + deed.draw.Of(deed.home.endpoints)};
}

Lines Volume(const DeedDraw& deed)
{
    return {"audio volume " + deed.draw.Of(deed.home.endpoints) + " " +
            std::to_string(deed.draw.Between(0, 100))};
}

Lines Default(const DeedDraw& deed)
{
    return {"audio default " + deed.draw.Of(deed.home.endpoints)};
}

Lines TakeEndpoint(const DeedDraw& deed)
{
    return {"audio " + deed.draw.Of({"unplug ", "disable "}) + deed.draw.Of(deed.home.endpoints)};
}

Lines EndpointsBack(const DeedDraw& deed)
{
    Lines lines;
    for (const std::string& name : deed.home.endpoints) lines.push_back("audio plug " + name);
    return lines;
}

Lines NewEndpoint(const DeedDraw& deed)
{
    return {"audio add New" + std::to_string(deed.draw.Between(1, 2)) + " render " +
            deed.draw.Of({"muted", "unmuted"}) + deed.draw.Of({"", " default"})};
}

Lines DeviceFails(const DeedDraw&) { return {"device fails 31"}; }
Lines DeviceWorks(const DeedDraw&) { return {"device fails 0"}; }

// --- The clock ---

Lines SetClock(const DeedDraw& deed)
{
    const auto now = deed.home.clock + deed.at;
    const auto by = deed.draw.Of({1min, 10min, 1h, 8h, 24h, -1min, -1h, -8h, 61min, 30s});
    const std::string text = virtual_pc::FormatCalendar(now + by);
    return {"clock " + text.substr(0, 19)};
}

Lines DaylightSaving(const DeedDraw& deed)
{
    return {"daylight saving " + deed.draw.Of({"begins", "ends"})};
}

}  // namespace

std::string Quoted(const std::string& text)
{
    return text.find(' ') == text.npos ? text : "\"" + text + "\"";
}

std::vector<DeedKind> SettingKinds()
{
    return {
        {"choose plan", 8, ChoosePlan},
        {"edit plan", 8, EditPlan},
        {"make plan", 4, MakePlan},
        {"drop plan", 6, DropPlan},
        {"plan policy", 3, PlanPolicy, NoPolicy},
        {"feature", 8, FeatureOff, FeatureOn},
        {"client", 8, ByClient},
        {"other client", 4, OtherClient},
        {"setting", 4, Setting},
        {"mute", 8, Mute},
        {"volume", 1, Volume},
        {"default", 4, Default},
        {"endpoint", 6, TakeEndpoint, EndpointsBack},
        {"new endpoint", 2, NewEndpoint},
        {"device", 3, DeviceFails, DeviceWorks},
        {"clock", 3, SetClock},
        {"daylight saving", 2, DaylightSaving},
    };
}

Lines SetUp(Draw& draw, const Home& home)
{
    const std::string root = R"(reg set HKLM\Software\Orbeq\Holv\User )";
    Lines lines = {"os " + draw.Of({"7", "8.1", "10", "11"}),
                   "clock " + virtual_pc::FormatCalendar(home.clock).substr(0, 19),
                   "session logon alice", root + "LoggingEnabled dword 4",
                   root + "LoggingLevel dword " + std::to_string(draw.Between(1, 6))};
    if (draw.Chance(10)) lines.push_back("pc sleeps " + draw.Of({"modern", "never"}));
    if (draw.Chance(80)) lines.emplace_back(R"(device add ACPI\QRX5071\1)");
    for (const std::string& name : home.endpoints) {
        std::string line = "audio add " + name;
        line += name == "Mic" ? " capture " : " render ";
        line += draw.Of({"unmuted", "unmuted", "muted"});
        if (name == "Desk" || name == "Mic") line += " default";
        lines.push_back(std::move(line));
    }
    for (const std::string name :
         {"MuteAudio", "DndToS3", "EnableHOLVOnDc", "EnableDoNotDisturb"}) {
        if (draw.Chance(50)) lines.push_back(root + name + " dword " + draw.Of({"0", "1"}));
    }
    if (draw.Chance(30)) {
        lines.push_back(root + "DoNotDisturbStart dword " + std::to_string(draw.Between(0, 1440)));
        lines.push_back(root + "DoNotDisturbEnd dword " + std::to_string(draw.Between(0, 1440)));
    }
    for (std::size_t i = 3; i < home.plans.size(); ++i) {
        lines.push_back("plan copy " +
                        Quoted(home.plans[static_cast<std::size_t>(draw.Between(0, 2))]) + " " +
                        home.plans[i] + " 5D0C0001-0000-4000-8000-00000000000" + std::to_string(i));
    }
    for (auto count = draw.Between(0, 6); count > 0; --count) {
        lines.push_back("plan set " + Quoted(draw.Of(home.plans)) + PlanValue(draw));
    }
    if (draw.Chance(40)) lines.push_back("plan active " + Quoted(draw.Of(home.plans)));
    if (draw.Chance(50)) lines.emplace_back("battery drain 12/h");
    if (draw.Chance(50)) lines.emplace_back("battery charge 60/h");
    if (draw.Chance(60)) lines.emplace_back("power battery 80");
    if (draw.Chance(60)) lines.emplace_back("power ac");
    return lines;
}
