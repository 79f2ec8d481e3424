// The running module, its resources, the processor it runs on, libraries, the system's messages,
// and the last-chance exception filter.

#include "platform/module.h"

#include <algorithm>
#include <cstring>

#include "platform/cpu.h"
#include "platform/virtual/base/names.h"
#include "platform/virtual/core/call.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/processes/cpu.h"
#include "platform/virtual/processes/libraries.h"
#include "platform/virtual/processes/string_table.h"

using namespace virtual_pc;

namespace {

Function fn_get_module_file_name{"GetModuleFileNameW"};
Function fn_load_string{"LoadStringW"};
Function fn_get_module_handle{"GetModuleHandleW"};
Function fn_load_library{"LoadLibraryW"};
Function fn_free_library{"FreeLibrary", Failing::last_error, Role::releases};
Function fn_get_proc_address{"GetProcAddress"};
Function fn_format_message{"FormatMessageW"};
Function fn_cpuid{"__cpuid", Failing::never};
Function fn_get_command_line{"GetCommandLineW", Failing::never};
Function fn_set_unhandled_exception_filter{"SetUnhandledExceptionFilter", Failing::never};

// The handle of the running program, at the usual address of one.
const HMODULE kProgram = reinterpret_cast<HMODULE>(std::uintptr_t{0x140000000});

class Library final : public Object
{
public:
    explicit Library(std::wstring where) : path(std::move(where)) {}
    std::string_view Kind() const override { return "library"; }
    std::wstring Name() const override { return path; }

    const std::wstring path;
};

// The system's messages that are modelled; FormatMessageW fails for others.
struct Message
{
    DWORD error;
    const wchar_t* text;
};
constexpr Message kMessages[] = {
    {ERROR_ACCESS_DENIED, L"Access is denied.\r\n"},
    {ERROR_NOT_ENOUGH_MEMORY,
     L"Not enough memory resources are available to process this command.\r\n"},
    {ERROR_GEN_FAILURE, L"A device attached to the system is not functioning.\r\n"},
};

}  // namespace

extern "C" {

DWORD WINAPI GetModuleFileNameW(HMODULE, LPWSTR path, DWORD size)
{
    Call call(fn_get_module_file_name);
    if (call.Fails()) return 0;
    call.thread.last_error = size == 0 ? ERROR_INSUFFICIENT_BUFFER : NO_ERROR;
    if (size == 0) return 0;
    const std::wstring& full = call.process().path();
    const std::size_t copied = std::min<std::size_t>(full.size(), size - 1);
    std::copy_n(full.begin(), copied, path);
    path[copied] = L'\0';
    if (copied == full.size()) return static_cast<DWORD>(copied);
    call.thread.last_error = ERROR_INSUFFICIENT_BUFFER;
    return size;
}

int WINAPI LoadStringW(HINSTANCE, UINT id, LPWSTR text, int size)
{
    Call call(fn_load_string);
    if (call.Fails() || size <= 0) return 0;
    const auto texts = ReadStringTable(call.process().image().resources + "/HOLVService.rc.in");
    const auto found = texts.find(id);
    if (found == texts.end()) return call.Fail(ERROR_RESOURCE_NAME_NOT_FOUND);
    const std::size_t length = std::min<std::size_t>(found->second.size(), size - 1);
    std::copy_n(found->second.begin(), length, text);
    text[length] = L'\0';
    return static_cast<int>(length);
}

HMODULE WINAPI GetModuleHandleW(LPCWSTR name)
{
    Call call(fn_get_module_handle);
    if (call.Fails()) return nullptr;
    if (!name) return kProgram;
    const auto& resident = call.machine.libraries.resident;
    const auto found = std::ranges::find_if(
        resident, [&](const std::wstring& known) { return SameName(known, name); });
    if (found != resident.end()) return reinterpret_cast<HMODULE>(found - resident.begin() + 1);
    call.Fail(ERROR_MOD_NOT_FOUND);
    return nullptr;
}

HMODULE WINAPI LoadLibraryW(LPCWSTR path)
{
    Call call(fn_load_library);
    if (call.Fails()) return nullptr;
    if (!path || !call.machine.libraries.on_disk.contains(path)) {
        call.Fail(path ? ERROR_MOD_NOT_FOUND : ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return reinterpret_cast<HMODULE>(call.Open(std::make_shared<Library>(path)));
}

BOOL WINAPI FreeLibrary(HMODULE library)
{
    return CloseHandleOf<Library>(fn_free_library, reinterpret_cast<HANDLE>(library));
}

FARPROC WINAPI GetProcAddress(HMODULE library, LPCSTR name)
{
    Call call(fn_get_proc_address);
    if (call.Fails()) return nullptr;
    const auto* loaded = call.Find<Library>(reinterpret_cast<HANDLE>(library));
    if (!loaded) {
        call.Fail(library ? ERROR_MOD_NOT_FOUND : ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    const Libraries::Functions& functions = call.machine.libraries.on_disk[loaded->path];
    const auto found = functions.find(name);
    if (found != functions.end()) return found->second;
    call.Fail(ERROR_PROC_NOT_FOUND);
    return nullptr;
}

DWORD WINAPI FormatMessageW(DWORD flags, LPCVOID, DWORD message, DWORD, LPWSTR text, DWORD size,
                            void*)
{
    Call call(fn_format_message);
    if (call.Fails()) return 0;
    if (!text || !(flags & FORMAT_MESSAGE_FROM_SYSTEM)) {
        call.Fail(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const auto* found = std::ranges::find(kMessages, message, &Message::error);
    if (found == std::end(kMessages)) {
        call.Fail(ERROR_MR_MID_NOT_FOUND);
        return 0;
    }
    const std::wstring_view words = found->text;
    if (words.size() >= size) {
        call.Fail(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    text[words.copy(text, words.size())] = L'\0';
    return static_cast<DWORD>(words.size());
}

void __cpuid(int registers[4], int function)
{
    const Call call(fn_cpuid);
    std::fill_n(registers, 4, 0);
    if (function != 0) return;
    std::string vendor = call.machine.cpu.vendor;
    constexpr int kOrder[] = {1, 3, 2};  // EBX, EDX, ECX
    vendor.resize(sizeof(int) * std::size(kOrder));
    for (std::size_t part = 0; part < std::size(kOrder); ++part) {
        std::memcpy(&registers[kOrder[part]], vendor.data() + part * sizeof(int), sizeof(int));
    }
}

LPWSTR WINAPI GetCommandLineW()
{
    Call call(fn_get_command_line);
    return call.process().command_line().data();
}

LPTOP_LEVEL_EXCEPTION_FILTER WINAPI SetUnhandledExceptionFilter(LPTOP_LEVEL_EXCEPTION_FILTER filter)
{
    Call call(fn_set_unhandled_exception_filter);
    return std::exchange(call.process().exception_filter, filter);
}
}
