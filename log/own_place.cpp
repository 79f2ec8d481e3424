#include "log/own_place.h"

#include <atomic>

#include "platform/file.h"
#include "platform/module.h"
#include "platform/owned.h"
#include "platform/power.h"
#include "platform/security.h"

namespace {

// What is made within inherits these, and nothing is inherited from above, where users may add.
constexpr const wchar_t* kOwnRights =
    L"O:BAD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)";

inline void FreeDescriptor(PVOID descriptor) { LocalFree(descriptor); }
using OwnedDescriptor = Owned<PVOID, FreeDescriptor>;

}  // namespace

bool IsLink(const std::wstring& path)
{
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        const DWORD error = GetLastError();
        return error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND;
    }
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return false;
    static std::atomic<bool> told{false};
    if (!told.exchange(true)) {
        OutputDebugStringW((L"HOLV - " + path + L" is a link, and is not written through").c_str());
    }
    return true;
}

bool MakeOwnFolder(const std::wstring& path)
{
    if (IsLink(path.substr(0, path.rfind(L'\\'))) || IsLink(path)) return false;
    OwnedDescriptor rights;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(kOwnRights, SDDL_REVISION_1,
                                                              rights.Receive(), nullptr)) {
        return false;
    }
    SECURITY_ATTRIBUTES attributes{sizeof(attributes), rights.Get(), FALSE};
    CreateDirectoryW(path.c_str(), &attributes);
    return true;
}
