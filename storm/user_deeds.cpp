// What the user does at the PC, and what the programs do that run on it.

#include "storm/deeds.h"

namespace {

Lines Input(const DeedDraw&) { return {"user input"}; }

Lines WakeByButton(const DeedDraw&) { return {"wake user"}; }
Lines Plug(const DeedDraw&) { return {"power ac"}; }

Lines Unplug(const DeedDraw& deed)
{
    const std::int64_t charge =
        deed.draw.Chance(50) ? deed.draw.Between(10, 25) : deed.draw.Between(1, 100);
    return {(deed.draw.Chance(10) ? "power ups " : "power battery ") + std::to_string(charge)};
}

Lines Rates(const DeedDraw& deed)
{
    return {deed.draw.Chance(50)
                ? "battery drain " + std::to_string(deed.draw.Between(0, 60)) + "/h"
                : "battery charge " + std::to_string(deed.draw.Between(0, 90)) + "/h"};
}

// Whose requests end by `EndFilm`.
Lines StartFilm(const DeedDraw& deed)
{
    const std::string by = deed.draw.Of({"program", "driver"});
    return {by + " requires " + deed.draw.Of({"display", "system", "away"}) + " Film.exe"};
}

Lines EndFilm(const DeedDraw&)
{
    return {"program releases display Film.exe", "program releases system Film.exe",
            "program releases away Film.exe"};
}

Lines Load(const DeedDraw& deed)
{
    return {"processor load " +
            std::to_string(deed.draw.Chance(40) ? 0 : deed.draw.Between(0, 100))};
}

Lines UseSession(const DeedDraw& deed)
{
    return {"session " +
            deed.draw.Of({"lock", "unlock", "logoff", "none", "switch bob", "switch alice"})};
}
Lines SessionAgain(const DeedDraw&) { return {"session unlock", "session logon alice"}; }

// Two things at one instant, before any program has run.
Lines AtOnce(const DeedDraw& deed)
{
    static const std::vector<Lines (*)(const DeedDraw&)> kKinds = {
        Leave, ComeBack, Plug, Unplug, StartFilm, EndFilm, PutToSleep};
    Lines lines = {"meanwhile {"};
    for (int i = 0; i < 2; ++i) {
        for (const std::string& line : deed.draw.Of(kKinds)(deed)) {
            // A call needs programs that run.
            if (!line.starts_with("client")) lines.push_back(line);
        }
    }
    lines.emplace_back("}");
    return lines;
}

}  // namespace

Lines WakeByTimer(const DeedDraw&) { return {"wake timer"}; }
Lines PutToSleep(const DeedDraw&) { return {"sleep"}; }

Lines Leave(const DeedDraw& deed)
{
    if (deed.draw.Chance(3)) return {"user leaves", "sleep", "client set E_HOLV_STATE 1"};
    if (deed.draw.Chance(55)) return {"user leaves", "sleep"};
    return {"user leaves"};
}

Lines ComeBack(const DeedDraw& deed)
{
    if (deed.draw.Chance(10)) return {"wake user", "user input"};
    return {"wake user", "user works"};
}

std::vector<DeedKind> UserKinds()
{
    return {
        {"input", 6, Input},       {"button", 6, WakeByButton},
        {"timer", 6, WakeByTimer}, {"sleep", 6, PutToSleep},
        {"plug", 8, Plug},         {"unplug", 8, Unplug, Plug},
        {"rates", 2, Rates},       {"film", 8, StartFilm, EndFilm},
        {"load", 3, Load},         {"session", 6, UseSession, SessionAgain},
        {"at once", 8, AtOnce},
    };
}
