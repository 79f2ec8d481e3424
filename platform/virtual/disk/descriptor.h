// Descriptors of rights, which the virtual PC keeps as their texts.
#pragma once

#include <string_view>

#include "platform/virtual/disk/file_rights.h"

namespace virtual_pc {

// The rights of a descriptor's text: who is given all of them, of the system and administrators.
FileRights::Rights ToRights(std::wstring_view descriptor);

}  // namespace virtual_pc
