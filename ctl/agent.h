// The commands that go through the service's control interface.
#pragma once

#include "ctl/command.h"

int RunGet(const CommandArguments& arguments);
int RunSet(const CommandArguments& arguments);
int RunInterval(const CommandArguments& arguments);
int RunEvent(const CommandArguments& arguments);
