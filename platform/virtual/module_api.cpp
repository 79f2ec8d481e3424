// The running module and the last-chance exception filter.

#include "platform/module.h"

#include <algorithm>

#include "platform/virtual/call.h"

using namespace virtual_pc;

namespace {

Function get_module_file_name{"GetModuleFileNameW"};
Function get_command_line{"GetCommandLineW", Failing::never};
Function set_unhandled_exception_filter{"SetUnhandledExceptionFilter", Failing::never};

}  // namespace

extern "C" {

DWORD WINAPI GetModuleFileNameW(HMODULE, LPWSTR path, DWORD size)
{
    Call call(get_module_file_name);
    if (call.Fails() || size == 0) return 0;
    const std::wstring& full = call.process().path();
    const std::size_t copied = std::min<std::size_t>(full.size(), size - 1);
    std::copy_n(full.begin(), copied, path);
    path[copied] = L'\0';
    if (copied == full.size()) return static_cast<DWORD>(copied);
    call.thread.last_error = ERROR_INSUFFICIENT_BUFFER;
    return size;
}

LPWSTR WINAPI GetCommandLineW()
{
    Call call(get_command_line);
    return call.process().command_line().data();
}

LPTOP_LEVEL_EXCEPTION_FILTER WINAPI SetUnhandledExceptionFilter(LPTOP_LEVEL_EXCEPTION_FILTER filter)
{
    Call call(set_unhandled_exception_filter);
    return std::exchange(call.process().exception_filter, filter);
}
}
