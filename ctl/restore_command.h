// holvctl restore.
#pragma once

// Restores from the journal what is the user's, unless the service runs, which does so itself, or
// another process is restoring. Prints what came of it. Returns the exit code: 0 when nothing is
// left to restore, 1 when something is, 3 when it was refused.
int RunRestore();
