// The string table of an executable, read from the source of its resources.
#pragma once

#include <map>
#include <string>

#include "platform/base.h"

namespace virtual_pc {

// The texts by their ids; empty when the file cannot be read or has no table.
std::map<UINT, std::wstring> ReadStringTable(const std::string& file);

}  // namespace virtual_pc
