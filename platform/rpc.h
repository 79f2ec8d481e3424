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
#define RPC_S_INVALID_STRING_UUID 1705

extern "C" {

// Reads the 36-character form without braces, in any letter case; a null string gives the null
// identifier. RPC_S_OK on success, RPC_S_INVALID_STRING_UUID otherwise, the last error is left
// alone. Any thread.
RPC_STATUS WINAPI UuidFromStringW(RPC_WSTR text, UUID* uuid);
}

#endif
