// The report of what a PC did, made from the disk that a run has left.
#pragma once

#include <filesystem>
#include <ostream>

#include "pc/player.h"

struct ReportOptions
{
    int days = 7;
    std::filesystem::path html;  // a page with the picture is written there; empty for none
    bool json = false;
};

// Runs holvctl's report on the PC whose disk lies in options.machine.root. Returns holvctl's exit
// code, or 1 when the page cannot be written.
int ReportOfRun(const PlayOptions& options, const ReportOptions& report, std::ostream& out,
                std::ostream& errors);
