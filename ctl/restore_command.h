// The command "holvctl restore".
#pragma once

#include "ctl/command.h"

// Restores the user's values from the journal, and prints how many. Refuses while the service runs,
// which restores them when it stops, and while another process restores them. Returns the exit
// code: 0 when nothing is left to restore, 1 when something is, 3 when it was refused.
int RunRestore(const CommandArguments& arguments);
