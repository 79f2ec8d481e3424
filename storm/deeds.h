// The kinds of deeds, each with what it draws.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/virtual/base/time.h"
#include "storm/draw.h"

// What a deed may know of the PC when it is drawn: nothing that depends on other deeds.
struct Home
{
    virtual_pc::CalendarTime clock;  // at the service's first start
    std::vector<std::string> plans;
    std::vector<std::string> endpoints;
};

using Lines = std::vector<std::string>;

// One deed's draws.
struct DeedDraw
{
    const Home& home;
    virtual_pc::Duration at;
    Draw& draw;
};

struct DeedKind
{
    std::string_view name;
    // How often it is chosen among the kinds that a life has switched on.
    unsigned weight;
    // The commands; a deed that a later one must end has that one in `after`.
    Lines (*lines)(const DeedDraw& deed);
    // What ends or undoes it at a later time; null where nothing needs to.
    Lines (*after)(const DeedDraw& deed) = nullptr;
};

const std::vector<DeedKind>& DeedKinds();

// --- The parts of the table, each in a file of its own ---
std::vector<DeedKind> UserKinds();     // the user, sleep, the plug, other programs
std::vector<DeedKind> SettingKinds();  // plans, settings, sound, sessions, devices, the clock
std::vector<DeedKind> UnkindKinds();   // the service's ends, power cuts, faults, slow calls

// The user comes back, leaves: the two halves of an absence.
Lines Leave(const DeedDraw& deed);
Lines ComeBack(const DeedDraw& deed);
Lines WakeByTimer(const DeedDraw& deed);
Lines PutToSleep(const DeedDraw& deed);
Lines KillService(const DeedDraw& deed);

// The PC as a user may have set it up.
Lines SetUp(Draw& draw, const Home& home);

// In quotes where a command needs them.
std::string Quoted(const std::string& text);
