// The power room: source and battery, plans and requests.

#include "pc/commands.h"

std::vector<Command> PowerCommands() { return {}; }
