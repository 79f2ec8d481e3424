// How a program was started for a user.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/base.h"

namespace virtual_pc {

// How a program was started by CreateProcessAsUserW, kept with its process.
struct Launch
{
    DWORD session = 0;
    std::wstring user = L"SYSTEM";               // whose rights it has
    std::vector<std::wstring> environment = {};  // "NAME=value"
    std::wstring desktop = {};
    DWORD startup_flags = 0;
    WORD show = 0;
    DWORD flags = 0;
    // Whether it got a copy of each handle that its creator could pass on.
    bool inherits_handles = false;

    // A variable's value; empty when it is not there.
    std::wstring Variable(std::wstring_view name) const;
};

}  // namespace virtual_pc
