// Where the published state is, below HKEY_LOCAL_MACHINE.
#pragma once

inline constexpr const wchar_t* kHolvKey = LR"(Software\Orbeq\Holv)";
// In it; volatile: it is gone when the PC starts again.
inline constexpr const wchar_t* kPublishedKey = L"State";
// Its values, both texts: the state as JSON, and when the key was made, which tells one start of
// the PC from another.
inline constexpr const wchar_t* kPublishedValue = L"Now";
inline constexpr const wchar_t* kBootValue = L"Boot";

inline constexpr int kPublishedVersion = 1;
