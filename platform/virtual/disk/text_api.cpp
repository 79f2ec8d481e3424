// The conversion of text to UTF-8.

#include <algorithm>
#include <cwchar>

#include "platform/file.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/core/call.h"

using namespace virtual_pc;

namespace {

Function fn_wide_char_to_multi_byte{"WideCharToMultiByte"};

}  // namespace

extern "C" {

int WINAPI WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int wideCount, LPSTR bytes,
                               int bytesCount, LPCSTR defaultChar, BOOL* usedDefault)
{
    Call call(fn_wide_char_to_multi_byte);
    if (call.Fails()) return 0;
    const bool understood = codePage == CP_UTF8 && flags == 0 && !defaultChar && !usedDefault;
    if (!understood || !wide || wideCount == 0 || bytesCount < 0 || (bytesCount && !bytes)) {
        return call.Fail(ERROR_INVALID_PARAMETER);
    }
    const std::size_t count =
        wideCount < 0 ? std::wcslen(wide) + 1 : static_cast<std::size_t>(wideCount);
    const std::string converted = ToUtf8({wide, count});
    const int needed = static_cast<int>(converted.size());
    if (bytesCount == 0) return needed;
    if (bytesCount < needed) return call.Fail(ERROR_INSUFFICIENT_BUFFER);
    std::ranges::copy(converted, bytes);
    return needed;
}
}
