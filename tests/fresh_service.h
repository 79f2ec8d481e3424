// The process-wide data of the service that is linked into a test program.
#pragma once

// Puts all of the service's data back to what they were when the program started, as a new process
// finds them: settings, state record, log writer, caches, and whatever else a file keeps to itself.
// Every test begins with it (ground.cpp); a test that lives several lives of the service calls it
// between them. No thread of the service may run meanwhile.
//
// What the service had on the heap stays there, as its destructors do not run. Unless `leaks`, it
// stays reachable, for which a copy of the data is kept each time.
void FreshService(bool leaks = false);
