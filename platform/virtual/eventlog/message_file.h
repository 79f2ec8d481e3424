// Message tables, read from the message compiler's text form.
#pragma once

#include <map>
#include <string>

#include "platform/base.h"

namespace virtual_pc {

// A module's message texts by id, each line of a text with its line end (CR LF), insertions (%1)
// as written.
using MessageTable = std::map<DWORD, std::wstring>;

// Reads the English (United States) texts of a file of this form:
//
//     ; a comment
//     MessageIdTypedef=DWORD
//     LanguageNames=(English=0x409:MSG00409)
//     MessageId=2000
//     SymbolicName=EVENT_TEXT
//     Language=English
//     %1
//     .
//
// One keyword a line; a MessageId without a number is the one before plus 1; severities and
// facilities are not understood. Throws std::runtime_error "FILE:LINE: what is wrong".
MessageTable ReadMessageFile(const std::string& file);

}  // namespace virtual_pc
