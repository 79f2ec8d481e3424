// Internal to state/: delayed entries that a suspend has overtaken.
//
// An entry that the PC sleeps through falls due as it wakes, perhaps before the service is told of
// the resume: it would choose a never-sleep state, and put the PC back to sleep under its user's
// hands. The resume that follows brings an entry of its own where one is needed.
#pragma once

// The PC is about to sleep: the entries that are under way no longer count.
void OvertakeDelayedEntries();
