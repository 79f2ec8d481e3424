// The names and ids under which the executable is registered with the system.
#pragma once

#include "platform/base.h"

inline constexpr UINT kServiceNameId = 100;  // in the string table
inline constexpr const wchar_t* kServiceName = L"HOLVService";
inline constexpr const wchar_t* kDisplayName = L"Orbeq(R) Holv Technology";

inline constexpr const wchar_t* kAppId = L"{7A31C5E2-90D4-4B6E-A1F3-2C8D5E9B0A47}";

// The value of the AppID key that declares the executable a service.
inline constexpr const wchar_t* kLocalService = L"LocalService";
