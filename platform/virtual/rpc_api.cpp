// Identifiers in string form.

#include "platform/rpc.h"

#include "platform/virtual/call.h"
#include "platform/virtual/power_plans.h"

using namespace virtual_pc;

namespace {

Function uuid_from_string{"UuidFromStringW", Failing::status};

}  // namespace

extern "C" {

RPC_STATUS WINAPI UuidFromStringW(RPC_WSTR text, UUID* uuid)
{
    Call call(uuid_from_string);
    if (call.Fails()) return static_cast<RPC_STATUS>(call.error());
    const std::optional<GUID> parsed = text ? ParseGuid(text) : GUID{};
    if (!parsed) return RPC_S_INVALID_STRING_UUID;
    *uuid = *parsed;
    return RPC_S_OK;
}
}
