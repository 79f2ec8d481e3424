// Descriptors, and the attributes of files.

#include "platform/security.h"

#include <filesystem>
#include <stdexcept>
#include <string_view>

#include "platform/virtual/core/call.h"
#include "platform/virtual/core/memory.h"
#include "platform/virtual/disk/descriptor.h"
#include "platform/virtual/disk/disk.h"

using namespace virtual_pc;

namespace {

namespace fs_of_attributes = std::filesystem;

constexpr DWORD kNormal = 0x80;

Function fn_get_file_attributes{"GetFileAttributesW"};
Function fn_convert_text_to_descriptor{"ConvertStringSecurityDescriptorToSecurityDescriptorW"};

DWORD FailToTell(Call& call, DWORD error)
{
    call.Fail(error);
    return INVALID_FILE_ATTRIBUTES;
}

}  // namespace

void virtual_pc::MakeWith(FileRights& rights, const std::string& folder, std::wstring_view user,
                          const SECURITY_ATTRIBUTES* attributes)
{
    rights.Made(folder, user);
    if (!attributes || !attributes->lpSecurityDescriptor) return;
    const std::wstring_view text = static_cast<const wchar_t*>(attributes->lpSecurityDescriptor);
    std::vector<std::wstring> writers;
    if (text.find(L"FA;;;SY") != text.npos) writers.emplace_back(L"SYSTEM");
    if (text.find(L"FA;;;BA") != text.npos) writers.emplace_back(L"Administrators");
    rights.Set(folder, {text.starts_with(L"O:BA") ? L"Administrators" : L"SYSTEM", writers});
}

extern "C" {

DWORD WINAPI GetFileAttributesW(LPCWSTR path)
{
    Call call(fn_get_file_attributes);
    if (call.Fails()) return INVALID_FILE_ATTRIBUTES;
    if (!path || !*path) return FailToTell(call, ERROR_PATH_NOT_FOUND);
    try {
        const fs_of_attributes::path host = call.machine.disk.HostPath(path);
        std::error_code error;
        const auto status = fs_of_attributes::symlink_status(host, error);
        if (!fs_of_attributes::exists(status)) {
            const bool folder = fs_of_attributes::is_directory(host.parent_path(), error);
            return FailToTell(call, folder ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
        }
        DWORD attributes = 0;
        if (fs_of_attributes::is_symlink(status)) attributes |= FILE_ATTRIBUTE_REPARSE_POINT;
        if (fs_of_attributes::is_directory(host, error)) attributes |= FILE_ATTRIBUTE_DIRECTORY;
        return attributes ? attributes : kNormal;
    } catch (const std::invalid_argument&) {
        return FailToTell(call, ERROR_PATH_NOT_FOUND);
    }
}

// A descriptor is its text.
BOOL WINAPI ConvertStringSecurityDescriptorToSecurityDescriptorW(LPCWSTR text, DWORD revision,
                                                                 PSECURITY_DESCRIPTOR* descriptor,
                                                                 ULONG* size)
{
    Call call(fn_convert_text_to_descriptor);
    if (call.Fails()) return FALSE;
    if (!text || !descriptor || revision != SDDL_REVISION_1) {
        return call.Fail(ERROR_INVALID_PARAMETER);
    }
    const std::wstring_view characters(text);
    const std::size_t bytes = (characters.size() + 1) * sizeof(wchar_t);
    *descriptor = Allocate(call, bytes, "local memory");
    characters.copy(static_cast<wchar_t*>(*descriptor), characters.size());
    if (size) *size = static_cast<ULONG>(bytes);
    return TRUE;
}
}
