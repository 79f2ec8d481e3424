// The commands "holvctl status" and "holvctl why".
#pragma once

#include "ctl/command.h"

int RunStatus(const CommandArguments& arguments);
int RunWhy(const CommandArguments& arguments);
