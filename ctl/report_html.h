// The report as a page of its own, with a timeline.
#pragma once

#include <string>

#include "ctl/report.h"

// HTML that needs no other file.
std::wstring ReportHtml(const Report& report);

// "7:05", in hours and minutes; "-" for nothing.
std::wstring HoursText(std::int64_t ms);

// The holders of power requests, those that held longest first.
std::vector<std::pair<std::wstring, std::int64_t>> HoldersOf(const Report& report);
