// GUIDs as text.
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

// Reads a GUID from its 36 characters without braces, in any letter case; null gives the null GUID.
// RPC_S_OK, or RPC_S_INVALID_STRING_UUID; the last error is unchanged. Any thread.
RPC_STATUS WINAPI UuidFromStringW(RPC_WSTR text, UUID* uuid);

// Writes a GUID in that form, in lower case, into a string that the caller frees with
// RpcStringFreeW. RPC_S_OK, or RPC_S_OUT_OF_MEMORY and no string. Any thread.
RPC_STATUS WINAPI UuidToStringW(const UUID* uuid, RPC_WSTR* text);
// Frees a string and sets the pointer to null; does nothing for a null string.
RPC_STATUS WINAPI RpcStringFreeW(RPC_WSTR* text);
}

#endif
