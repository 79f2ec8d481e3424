// The order and the text of GUIDs.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/base.h"

namespace virtual_pc {

struct GuidLess
{
    bool operator()(const GUID& a, const GUID& b) const;
};

// "381B4222-F694-41F0-9685-FF5BB260DF2E"
std::wstring FormatGuid(const GUID& guid);
std::optional<GUID> ParseGuid(std::wstring_view text);

}  // namespace virtual_pc
