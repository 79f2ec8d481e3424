// The registry-backed store of the settings: a value of the User key wins over one of the OEM key,
// and that over the built-in default.
#pragma once

#include "platform/registry.h"

// Loads every setting but EnableAppSuspend and applies the bounds. Called once, at process start,
// before any thread is started. Creates the User key when it is missing; where that fails, the
// settings keep their built-in values.
void RegInit();

// Writes a setting to the User key. FALSE, with a log line, when it cannot be written.
BOOL RegWriteDWord(const wchar_t* name, DWORD value);
// The same in an open key; for a null key FALSE, without a line in the log.
BOOL RegWriteDWord(HKEY key, const wchar_t* name, DWORD value);

// The value of the User key, else of the OEM key, else `defaultValue`. A value of another type or
// size counts as missing, without a log line. `oemKey` may be null.
DWORD RegReadDWord(HKEY userKey, HKEY oemKey, const wchar_t* name, DWORD defaultValue);

// Reads OemPowerScheme into g_szOemPowerScheme. Returns the bytes read, terminator included; 0 when
// neither key has a string that fits, and the global is then unchanged. `oemKey` may be null.
DWORD RegReadOemPowerScheme(HKEY userKey, HKEY oemKey);

// Limits every setting to its bounds.
void ClampSettings();
