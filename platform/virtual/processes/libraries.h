// Libraries that programs load: tables of functions of the host.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/module.h"
#include "platform/virtual/base/names.h"

namespace virtual_pc {

struct Libraries
{
    using Functions = std::map<std::string, FARPROC>;

    // What LoadLibraryW finds, by full path.
    std::map<std::wstring, Functions, NoCase> on_disk;
    // The names that GetModuleHandleW finds in every process.
    std::vector<std::wstring> resident;
};

}  // namespace virtual_pc
