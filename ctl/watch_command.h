// The command "holvctl watch".
#pragma once

#include "ctl/command.h"

int RunWatch(const CommandArguments& arguments);
