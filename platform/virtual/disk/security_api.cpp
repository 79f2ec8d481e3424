// Descriptors, and the attributes of files.

#include "platform/security.h"

#include <cstdint>
#include <cstring>
#include <cwctype>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "platform/virtual/base/names.h"
#include "platform/virtual/core/call.h"
#include "platform/virtual/core/memory.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/disk/descriptor.h"
#include "platform/virtual/disk/disk.h"

using namespace virtual_pc;

namespace {

namespace fs_of_attributes = std::filesystem;

constexpr DWORD kNormal = 0x80;
constexpr DWORD kUnknownRevision = 1305;
constexpr SECURITY_INFORMATION kKnownParts = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;

Function fn_get_file_attributes{"GetFileAttributesW"};
Function fn_convert_text_to_descriptor{"ConvertStringSecurityDescriptorToSecurityDescriptorW"};
Function fn_convert_descriptor_to_text{"ConvertSecurityDescriptorToStringSecurityDescriptorW"};
Function fn_get_file_security{"GetFileSecurityW"};
Function fn_set_file_security{"SetFileSecurityW"};

DWORD FailToTell(Call& call, DWORD error)
{
    call.Fail(error);
    return INVALID_FILE_ATTRIBUTES;
}

// Those whose identifiers are the same on every PC.
constexpr struct
{
    std::wstring_view name, sid;
} kWellKnown[] = {
    {L"SYSTEM", L"SY"},
    {L"Administrators", L"BA"},
    {L"Users", L"BU"},
    {L"TrustedInstaller", L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464"},
};

std::wstring SidOf(std::wstring_view user)
{
    for (const auto& known : kWellKnown) {
        if (SameName(known.name, user)) return std::wstring(known.sid);
    }
    std::uint32_t number = 0;
    for (const wchar_t character : user) {
        number =
            number * 31 + static_cast<std::uint32_t>(std::towupper(static_cast<wint_t>(character)));
    }
    return L"S-1-5-21-1-2-3-" + std::to_wstring(number);
}

// Those who have all rights by a descriptor; nothing where it has no list of rights.
std::optional<std::vector<std::wstring>> WritersBy(std::wstring_view descriptor)
{
    const std::size_t list = descriptor.find(L"D:");
    if (list == descriptor.npos) return std::nullopt;
    std::vector<std::wstring> writers;
    for (const auto& known : kWellKnown) {
        const std::wstring entry = L"FA;;;" + std::wstring(known.sid) + L")";
        if (descriptor.find(entry, list) != descriptor.npos) writers.emplace_back(known.name);
    }
    return writers;
}

std::wstring_view TextOf(const SECURITY_ATTRIBUTES* attributes)
{
    if (!attributes || !attributes->lpSecurityDescriptor) return {};
    return static_cast<const wchar_t*>(attributes->lpSecurityDescriptor);
}

// As the folder of programs' data gives them where nothing else is said: everybody may add.
constexpr std::wstring_view kInherited =
    L"D:AI(A;OICIID;FA;;;SY)(A;OICIID;FA;;;BA)(A;OICIIOID;GA;;;CO)(A;OICIID;0x1200a9;;;BU)";

std::wstring DescriptorAt(const FileRights& rights, const std::string& place, bool folder)
{
    std::wstring text = L"O:" + SidOf(rights.OwnerOf(place));
    const auto writers = rights.WritersOf(place);
    if (!writers) {
        text += kInherited;
        return text + (folder ? L"(A;CIID;DCLCRPCR;;;BU)" : L"(A;ID;0x1301bf;;;BU)");
    }
    text += L"D:P(A;OICI;0x1200a9;;;BU)";
    for (const std::wstring& writer : *writers) text += L"(A;OICI;FA;;;" + SidOf(writer) + L")";
    return text;
}

// The place of an existing file or folder on the host, with links followed; nothing, with the last
// error set, where there is none.
std::optional<fs_of_attributes::path> ExistingPlace(Call& call, LPCWSTR path)
{
    if (!path || !*path) {
        call.Fail(ERROR_INVALID_NAME);
        return std::nullopt;
    }
    try {
        const fs_of_attributes::path host = call.machine.disk.HostPath(path);
        std::error_code error;
        const auto place = fs_of_attributes::canonical(host, error);
        if (!error) return place;
        const bool folder = fs_of_attributes::is_directory(host.parent_path(), error);
        call.Fail(folder ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
    } catch (const std::invalid_argument&) {
        call.Fail(ERROR_PATH_NOT_FOUND);
    }
    return std::nullopt;
}

bool IsAdministrator(std::wstring_view user)
{
    return SameName(user, L"SYSTEM") || SameName(user, L"Administrators");
}

}  // namespace

std::wstring virtual_pc::UserOf(const Call& call)
{
    const Process* process = call.thread.process;
    return process && process->launch ? process->launch->user : L"SYSTEM";
}

void virtual_pc::MakeWith(FileRights& rights, const std::string& folder, std::wstring_view user,
                          const SECURITY_ATTRIBUTES* attributes)
{
    rights.Made(folder, user);
    const std::wstring_view text = TextOf(attributes);
    if (text.empty()) return;
    const std::wstring_view owner = text.starts_with(L"O:BA") ? L"Administrators" : user;
    const auto writers = WritersBy(text);
    if (writers) {
        rights.Set(folder, {std::wstring(owner), writers});
    } else {
        rights.Made(folder, owner);
    }
}

bool virtual_pc::MayGiveAway(std::wstring_view user, const SECURITY_ATTRIBUTES* attributes)
{
    return IsAdministrator(user) || !TextOf(attributes).starts_with(L"O:BA");
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

BOOL WINAPI ConvertSecurityDescriptorToStringSecurityDescriptorW(PSECURITY_DESCRIPTOR descriptor,
                                                                 DWORD revision,
                                                                 SECURITY_INFORMATION asked,
                                                                 LPWSTR* text, ULONG* length)
{
    Call call(fn_convert_descriptor_to_text);
    if (call.Fails()) return FALSE;
    if (revision != SDDL_REVISION_1) return call.Fail(kUnknownRevision);
    if (!descriptor || !text || asked != kKnownParts) return call.Fail(ERROR_INVALID_PARAMETER);
    const std::wstring_view characters(static_cast<const wchar_t*>(descriptor));
    *text = static_cast<LPWSTR>(
        Allocate(call, (characters.size() + 1) * sizeof(wchar_t), "local memory"));
    characters.copy(*text, characters.size());
    if (length) *length = static_cast<ULONG>(characters.size() + 1);
    return TRUE;
}

BOOL WINAPI GetFileSecurityW(LPCWSTR path, SECURITY_INFORMATION asked,
                             PSECURITY_DESCRIPTOR descriptor, DWORD size, LPDWORD needed)
{
    Call call(fn_get_file_security);
    if (call.Fails()) return FALSE;
    if (asked != kKnownParts || !needed) return call.Fail(ERROR_INVALID_PARAMETER);
    const auto place = ExistingPlace(call, path);
    if (!place) return FALSE;
    const std::wstring text = DescriptorAt(call.machine.disk.rights, place->string(),
                                           fs_of_attributes::is_directory(*place));
    *needed = static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
    if (size < *needed || !descriptor) return call.Fail(ERROR_INSUFFICIENT_BUFFER);
    std::memcpy(descriptor, text.c_str(), *needed);
    return TRUE;
}

BOOL WINAPI SetFileSecurityW(LPCWSTR path, SECURITY_INFORMATION parts,
                             PSECURITY_DESCRIPTOR descriptor)
{
    Call call(fn_set_file_security);
    if (call.Fails()) return FALSE;
    if (!descriptor) return call.Fail(ERROR_NOACCESS);
    if (!(parts & DACL_SECURITY_INFORMATION)) return call.Fail(ERROR_INVALID_PARAMETER);
    const auto place = ExistingPlace(call, path);
    if (!place) return FALSE;
    FileRights& rights = call.machine.disk.rights;
    const std::wstring owner = rights.OwnerOf(place->string());
    const std::wstring user = UserOf(call);
    if (!IsAdministrator(user) && !SameName(user, owner)) return call.Fail(ERROR_ACCESS_DENIED);
    rights.Set(place->string(), {owner, WritersBy(static_cast<const wchar_t*>(descriptor))});
    return TRUE;
}
}
