// The command "holvctl report".
#pragma once

#include "ctl/command.h"

int RunReport(const CommandArguments& arguments);
