// The folders that programs ask for by an identifier.

#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "platform/file.h"
#include "platform/virtual/core/call.h"
#include "platform/virtual/core/memory.h"
#include "platform/virtual/disk/disk.h"

using namespace virtual_pc;

namespace {

constexpr HRESULT kNoSuchFolder = static_cast<HRESULT>(0x80070002u);
constexpr const wchar_t* kProgramData = LR"(C:\ProgramData)";

// A copy of the text for the caller, who frees it with CoTaskMemFree.
PWSTR CopyToTaskMemory(Call& call, std::wstring_view text)
{
    void* memory = Allocate(call, (text.size() + 1) * sizeof(wchar_t), "task memory");
    text.copy(static_cast<wchar_t*>(memory), text.size());
    return static_cast<PWSTR>(memory);
}

Function fn_get_known_folder_path{"SHGetKnownFolderPath", Failing::hresult};

}  // namespace

extern "C" {

HRESULT WINAPI SHGetKnownFolderPath(REFKNOWNFOLDERID folder, DWORD flags, HANDLE, PWSTR* path)
{
    Call call(fn_get_known_folder_path);
    *path = nullptr;
    if (call.Fails()) return static_cast<HRESULT>(call.error());
    if (std::memcmp(&folder, &FOLDERID_ProgramData, sizeof(GUID)) != 0) return kNoSuchFolder;
    const std::filesystem::path host = call.machine.disk.HostPath(kProgramData);
    std::error_code error;
    if (flags & KF_FLAG_CREATE) std::filesystem::create_directories(host, error);
    if (!std::filesystem::is_directory(host, error)) return kNoSuchFolder;
    *path = CopyToTaskMemory(call, kProgramData);
    return S_OK;
}
}
