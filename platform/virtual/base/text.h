// Text in the encodings of the host and of the PC.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace virtual_pc {

// The host's console and file names are UTF-8. In both directions, what is no valid character
// becomes U+FFFD.
std::string ToUtf8(std::wstring_view text);
std::wstring FromUtf8(std::string_view bytes);

// The parts of a text between separators, without the empty ones.
std::vector<std::wstring> PartsOf(std::wstring_view text, wchar_t separator);

}  // namespace virtual_pc
