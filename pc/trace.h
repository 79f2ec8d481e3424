// The trace: every effect as a line of JSON, in order.
#pragma once

#include <ostream>

#include "platform/virtual/core/machine.h"

// Writes the effects of `pc` to `out` from now on, the last while `pc` is destroyed: `out` must
// live longer.
void TraceTo(virtual_pc::Machine& pc, std::ostream& out);
