// The trace: every effect as a line of JSON, in order.
#pragma once

#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/virtual/core/machine.h"

// The kinds of effects, by name.
using TraceKinds = std::set<std::string, std::less<>>;

// All that there are.
const TraceKinds& AllTraceKinds();
// Those of a list with commas; nothing when one is unknown, or the list is empty.
std::optional<TraceKinds> ReadTraceKinds(std::string_view list);

// Writes the effects of `pc` that are of the kinds, or all when there are none, to `out` from now
// on, the last while `pc` is destroyed: `out` must live longer.
void TraceTo(virtual_pc::Machine& pc, std::ostream& out, const TraceKinds& only = {});
