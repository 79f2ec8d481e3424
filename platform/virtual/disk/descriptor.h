// Descriptors of rights, which the virtual PC keeps as their texts.
#pragma once

#include <string>
#include <string_view>

#include "platform/virtual/disk/file_rights.h"

namespace virtual_pc {

class Call;

// The user whose rights the calling process has.
std::wstring UserOf(const Call& call);

// Notes a folder that a user's program has made, with the rights that the attributes (which may be
// null) give: of the system and administrators, those who are given all of them may write.
void MakeWith(FileRights& rights, const std::string& folder, std::wstring_view user,
              const SECURITY_ATTRIBUTES* attributes);

// Whether the user may make something that belongs to whom the attributes say.
bool MayGiveAway(std::wstring_view user, const SECURITY_ATTRIBUTES* attributes);

}  // namespace virtual_pc
