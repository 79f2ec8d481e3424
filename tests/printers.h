// How GoogleTest shows states, GUIDs and the virtual PC's times where an expectation fails.
#pragma once

#include <atomic>
#include <cstdint>
#include <iosfwd>

#include "platform/virtual/base/time.h"

enum ESystemState : std::int32_t;

void PrintTo(ESystemState state, std::ostream* out);
void PrintTo(const std::atomic<ESystemState>& state, std::ostream* out);
void PrintTo(const GUID& guid, std::ostream* out);

// Where GoogleTest finds it: both parts of a Duration are the standard library's. Shown in seconds.
namespace std::chrono {
void PrintTo(const virtual_pc::Duration& duration, std::ostream* out);
}
