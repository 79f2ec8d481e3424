#include "tests/printers.h"

#include <ostream>

#include "pc/service_view.h"
#include "platform/virtual/base/guid.h"
#include "platform/virtual/base/text.h"

void PrintTo(ESystemState state, std::ostream* out)
{
    *out << virtual_pc::ToUtf8(StateNameOf(state)) << " (" << static_cast<std::int32_t>(state)
         << ")";
}

void PrintTo(const std::atomic<ESystemState>& state, std::ostream* out)
{
    PrintTo(state.load(), out);
}

void PrintTo(const GUID& guid, std::ostream* out)
{
    *out << virtual_pc::ToUtf8(virtual_pc::FormatGuid(guid));
}

void std::chrono::PrintTo(const virtual_pc::Duration& duration, std::ostream* out)
{
    *out << std::chrono::duration<double>(duration).count() << " s";
}
