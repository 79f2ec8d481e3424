// Identifiers in string form.
#pragma once

#include "platform/base.h"

#ifdef _WIN32

#include <rpc.h>

#else

using UUID = GUID;
using RPC_STATUS = LONG;
using RPC_WSTR = wchar_t*;

#define RPC_S_OK 0
#define RPC_S_OUT_OF_MEMORY 14
#define RPC_S_INVALID_STRING_UUID 1705

extern "C" {

// Reads the 36-character form without braces, in any letter case; a null string gives the null
// identifier. RPC_S_OK on success, RPC_S_INVALID_STRING_UUID otherwise, the last error is left
// alone. Any thread.
RPC_STATUS WINAPI UuidFromStringW(RPC_WSTR text, UUID* uuid);

// Writes it in that form, in lower case, into a string that the caller gives back with
// RpcStringFreeW. RPC_S_OK, or RPC_S_OUT_OF_MEMORY and no string. Any thread.
RPC_STATUS WINAPI UuidToStringW(const UUID* uuid, RPC_WSTR* text);
// Gives a string back and makes the pointer null; a null string is nothing to give back.
RPC_STATUS WINAPI RpcStringFreeW(RPC_WSTR* text);
}

#endif
