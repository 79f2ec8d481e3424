// Identifiers in string form.

#include "platform/rpc.h"

#include <algorithm>
#include <cwctype>

#include "platform/virtual/base/guid.h"
#include "platform/virtual/core/call.h"
#include "platform/virtual/core/memory.h"

using namespace virtual_pc;

namespace {

Function fn_uuid_from_string{"UuidFromStringW", Failing::status};
Function fn_uuid_to_string{"UuidToStringW", Failing::status};
Function fn_rpc_string_free{"RpcStringFreeW", Failing::never, Role::releases};

}  // namespace

extern "C" {

RPC_STATUS WINAPI UuidFromStringW(RPC_WSTR text, UUID* uuid)
{
    Call call(fn_uuid_from_string);
    if (call.Fails()) return static_cast<RPC_STATUS>(call.error());
    const std::optional<GUID> parsed = text ? ParseGuid(text) : GUID{};
    if (!parsed) return RPC_S_INVALID_STRING_UUID;
    *uuid = *parsed;
    return RPC_S_OK;
}

RPC_STATUS WINAPI UuidToStringW(const UUID* uuid, RPC_WSTR* text)
{
    Call call(fn_uuid_to_string);
    *text = nullptr;
    if (call.Fails()) return static_cast<RPC_STATUS>(call.error());
    std::wstring form = FormatGuid(uuid ? *uuid : GUID{});
    std::erase_if(form, [](wchar_t c) { return c == L'{' || c == L'}'; });
    const std::size_t size = (form.size() + 1) * sizeof(wchar_t);
    *text = static_cast<wchar_t*>(Allocate(call, size, "identifier's string"));
    std::ranges::transform(form, *text, [](wchar_t c) {
        return static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
    });
    return RPC_S_OK;
}

RPC_STATUS WINAPI RpcStringFreeW(RPC_WSTR* text)
{
    Call call(fn_rpc_string_free);
    Free(call, *text);
    *text = nullptr;
    return RPC_S_OK;
}
}
