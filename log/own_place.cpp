#include "log/own_place.h"

#include <atomic>

#include "log/rights.h"
#include "platform/file.h"
#include "platform/module.h"
#include "platform/owned.h"
#include "platform/power.h"
#include "platform/security.h"

namespace {

// What is made within inherits these, and nothing is inherited from above, where users may add.
constexpr const wchar_t* kOwnRights =
    L"O:BAD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)";
constexpr const wchar_t* kOwnedByAdministrators = L"O:BA";

inline void FreeDescriptor(PVOID descriptor) { LocalFree(descriptor); }
using OwnedDescriptor = Owned<PVOID, FreeDescriptor>;

OwnedDescriptor MakeDescriptor(const wchar_t* text)
{
    OwnedDescriptor rights;
    ConvertStringSecurityDescriptorToSecurityDescriptorW(text, SDDL_REVISION_1, rights.Receive(),
                                                         nullptr);
    return rights;
}

void Make(const std::wstring& path, const OwnedDescriptor& rights)
{
    SECURITY_ATTRIBUTES attributes{sizeof(attributes), rights.Get(), FALSE};
    CreateDirectoryW(path.c_str(), &attributes);
}

// False, for callers to answer with.
bool Distrust(const std::wstring& path, const wchar_t* why)
{
    static std::atomic<bool> told{false};
    if (!told.exchange(true)) OutputDebugStringW((L"HOLV - " + path + why).c_str());
    SetLastError(ERROR_ACCESS_DENIED);
    return false;
}

bool DistrustUsers(const std::wstring& path)
{
    return Distrust(path, L" belongs to a user or can be changed by users, and is not written");
}

bool IsSafeAbove(const std::wstring& folder)
{
    const std::wstring rights = DescriptorOf(folder);
    if (rights.empty()) return false;  // missing, or not to be looked at
    return (IsOwnedByTheSystem(folder, rights) && !LetsOthers(rights, Lets::replace)) ||
           DistrustUsers(folder);
}

}  // namespace

bool IsLink(const std::wstring& path)
{
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return GetLastError() != ERROR_FILE_NOT_FOUND;
    return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
           !Distrust(path, L" is a link, and is not written through");
}

void MakeSharedFolder(const std::wstring& path)
{
    if (const OwnedDescriptor owner = MakeDescriptor(kOwnedByAdministrators)) Make(path, owner);
}

bool MakeOwnFolder(const std::wstring& path)
{
    const std::wstring parent = FolderOf(path);
    if (IsLink(parent) || IsLink(path) || !IsSafeAbove(parent)) return false;
    const OwnedDescriptor own = MakeDescriptor(kOwnRights);
    if (!own) return false;
    Make(path, own);
    const std::wstring rights = DescriptorOf(path);
    if (rights.empty()) return false;
    // A user who owns the folder may have it open, and take back whatever is set now.
    if (!IsOwnedByTheSystem(path, rights)) return DistrustUsers(path);
    return !LetsOthers(rights, Lets::write) ||
           SetFileSecurityW(path.c_str(),
                            DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                            own.Get()) ||
           DistrustUsers(path);
}

bool IsOwnFile(const std::wstring& path, HANDLE file)
{
    BY_HANDLE_FILE_INFORMATION information{};
    if (!GetFileInformationByHandle(file, &information)) return false;
    if (information.nNumberOfLinks > 1) {
        return Distrust(path, L" has a second name, and is not written");
    }
    const std::wstring rights = DescriptorOf(path);
    if (rights.empty()) return false;
    return (IsOwnedByTheSystem(path, rights) && !LetsOthers(rights, Lets::write)) ||
           DistrustUsers(path);
}

std::wstring WritableByOthers(const std::wstring& program)
{
    const std::wstring folder = FolderOf(program);
    for (std::wstring path = program; !path.empty(); path = FolderOf(path)) {
        const std::wstring rights = DescriptorOf(path);
        if (rights.empty()) continue;
        const Lets what = path == program || path == folder ? Lets::write : Lets::replace;
        if (!IsOwnedByTheSystem(path, rights) || LetsOthers(rights, what)) return path;
    }
    return {};
}
