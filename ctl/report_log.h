// What the report has from the event log.
#pragma once

#include "ctl/report.h"

// Tells of the time before the history, or of all time where there is none: the states and the
// sleeps, which are among the milestones that the service reports. `now` is 0
// where the service does not run.
void TellBeforeHistory(Report& report, const History& history, const ServiceEvents& log,
                       UtcTime now);

// Puts the errors that the service has reported among the events; one that comes again on the same
// day is told once, with how often it came.
void TellErrors(Report& report, const History& history, const ServiceEvents& log);

// Where the report is from and what it lacks, a sentence each.
std::vector<std::wstring> SourceNotes(const Report& report);
