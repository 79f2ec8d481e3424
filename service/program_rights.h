// Whether others than administrators could put another program in the service's place.
#pragma once

// Logs a warning where users can write the program's file or its folder, or replace a folder above:
// the system runs that program with all rights. Any thread.
void WarnOfWritableProgram();
