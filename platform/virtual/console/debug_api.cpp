// Output to the debugger. The functions return nothing, so a fault drops the text or raises an
// exception.

#include <string>

#include "platform/module.h"
#include "platform/virtual/console/outputs.h"
#include "platform/virtual/core/call.h"

using namespace virtual_pc;

namespace {

Function fn_output_debug_string_w{"OutputDebugStringW"};
Function fn_output_debug_string_a{"OutputDebugStringA"};

}  // namespace

extern "C" {

void WINAPI OutputDebugStringW(LPCWSTR text)
{
    Call call(fn_output_debug_string_w);
    if (call.Fails() || !text) return;
    call.machine.outputs.Debug(call.thread.id, text);
}

void WINAPI OutputDebugStringA(LPCSTR text)
{
    Call call(fn_output_debug_string_a);
    if (call.Fails() || !text) return;
    std::wstring wide;
    for (const char* byte = text; *byte; ++byte) wide += static_cast<unsigned char>(*byte);
    call.machine.outputs.Debug(call.thread.id, wide);
}
}
