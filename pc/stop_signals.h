// Signals that ask holvpc to stop. They are noted, so that the PC is switched off in order: its
// processes end, and a disk that is not to be kept is removed.
#pragma once

// From now on SIGINT, SIGTERM and SIGHUP are noted. A second signal ends the program at once.
void CatchStopSignals();

// The noted signal; 0 for none.
int StopSignal();
void ForgetStopSignal();

// Ends the program by the noted signal, so that a shell sees what ended it. Returns when there is
// none.
void EndByStopSignal();
