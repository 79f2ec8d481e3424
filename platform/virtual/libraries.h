// Libraries that programs load. A program's own library is a handful of functions of the host.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/module.h"
#include "platform/virtual/names.h"

namespace virtual_pc {

struct Libraries
{
    using Functions = std::map<std::string, FARPROC>;

    // What LoadLibraryW finds, by full path.
    std::map<std::wstring, Functions, NoCase> on_disk;
    // The names of those that are in every process already.
    std::vector<std::wstring> resident;
};

}  // namespace virtual_pc
