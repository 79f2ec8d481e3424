// The commands that go through the service's control interface.
#pragma once

#include "ctl/command.h"

int RunGet(const CommandArguments& arguments);
int RunSet(const CommandArguments& arguments);
int RunInterval(const CommandArguments& arguments);
int RunEvent(const CommandArguments& arguments);
int RunVersion(const CommandArguments& arguments);

// Gives the running service the stored settings that clients can change, as a policy's refresh has
// written them. It does not start the service, which reads them then.
int RunRefresh(const CommandArguments& arguments);
