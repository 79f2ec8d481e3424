#include "log/rights.h"

#include <algorithm>
#include <array>
#include <cwchar>
#include <iterator>
#include <string_view>
#include <vector>

#include "platform/module.h"
#include "platform/owned.h"
#include "platform/power.h"
#include "platform/security.h"

namespace {

constexpr DWORD kAsked = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;

inline void FreeText(LPWSTR text) { LocalFree(text); }
using OwnedText = Owned<LPWSTR, FreeText>;

// These accounts have the PC. The last ones are Windows' installer, and placeholders for the
// owner, who is looked at by himself.
constexpr std::wstring_view kTrusted[] = {
    L"SY", L"BA", L"LA",
    L"DA", L"EA", L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464",
    L"CO", L"OW",
};

bool IsTrusted(std::wstring_view who)
{
    return std::ranges::find(kTrusted, who) != std::end(kTrusted);
}

// The rights by the letters that a descriptor's text has for them.
constexpr struct
{
    std::wstring_view letters;
    DWORD mask;
} kRights[] = {
    {L"GA", 0x10000000}, {L"GW", 0x40000000}, {L"GR", 0}, {L"GX", 0},    {L"FA", 0x1F01FF},
    {L"FW", 0x120116},   {L"FR", 0},          {L"FX", 0}, {L"RC", 0},    {L"SD", 0x10000},
    {L"WD", 0x40000},    {L"WO", 0x80000},    {L"CC", 0}, {L"DC", 0x2},  {L"LC", 0x4},
    {L"SW", 0},          {L"RP", 0x10},       {L"WP", 0}, {L"DT", 0x40}, {L"LO", 0},
    {L"CR", 0x100},
};
constexpr DWORD kReplacing = 0x100D0040;  // all, delete, the rights, the owner, delete within
constexpr DWORD kWriting = kReplacing | 0x40000116;

// What is not understood counts as all rights.
DWORD MaskOf(std::wstring_view text)
{
    constexpr DWORD kAll = 0xFFFFFFFF;
    constexpr int kHexadecimal = 16;
    if (text.starts_with(L"0x")) {
        return static_cast<DWORD>(std::wcstoul(std::wstring(text).c_str(), nullptr, kHexadecimal));
    }
    DWORD mask = text.size() % 2 == 0 ? 0 : kAll;
    for (; text.size() >= 2; text.remove_prefix(2)) {
        const auto right = std::ranges::find(kRights, text.substr(0, 2),
                                             [](const auto& known) { return known.letters; });
        mask |= right != std::end(kRights) ? right->mask : kAll;
    }
    return mask;
}

std::wstring_view OwnerIn(std::wstring_view descriptor)
{
    if (!descriptor.starts_with(L"O:")) return {};
    descriptor.remove_prefix(2);
    return descriptor.substr(0, std::min(descriptor.find(L"G:"), descriptor.find(L"D:")));
}

// An entry of the list of rights: (type;flags;rights;object;inherited object;who).
struct Entry
{
    std::wstring_view type, flags, rights, who;
};

Entry EntryIn(std::wstring_view text)
{
    std::array<std::wstring_view, 6> fields;
    for (std::wstring_view& field : fields) {
        field = text.substr(0, text.find(L';'));
        text.remove_prefix(std::min(text.size(), field.size() + 1));
    }
    return {fields[0], fields[1], fields[2], fields[5]};
}

bool Gives(const Entry& entry, DWORD rights, std::wstring_view owner)
{
    constexpr std::wstring_view kDenials[] = {L"D", L"OD", L"XD"};
    if (std::ranges::find(kDenials, entry.type) != std::end(kDenials)) return false;
    for (std::size_t at = 0; at < entry.flags.size(); at += 2) {
        if (entry.flags.substr(at, 2) == L"IO") return false;  // for what is made within
    }
    return !IsTrusted(entry.who) && entry.who != owner && (MaskOf(entry.rights) & rights) != 0;
}

}  // namespace

std::wstring FolderOf(const std::wstring& path)
{
    constexpr std::size_t kRootLength = 3;  // of "C:\\"
    const std::size_t end = path.rfind(L'\\');
    if (end == path.npos || path.size() <= kRootLength) return {};
    return path.substr(0, std::max(end, kRootLength));
}

std::wstring DescriptorOf(const std::wstring& path)
{
    DWORD size = 0;
    GetFileSecurityW(path.c_str(), kAsked, nullptr, 0, &size);
    std::vector<BYTE> descriptor(size);
    OwnedText text;
    if (!GetFileSecurityW(path.c_str(), kAsked, descriptor.data(), size, &size) ||
        !ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor.data(), SDDL_REVISION_1,
                                                              kAsked, text.Receive(), nullptr)) {
        return {};
    }
    return text.Get();
}

bool LetsOthers(const std::wstring& descriptor, Lets what)
{
    const DWORD rights = what == Lets::write ? kWriting : kReplacing;
    std::size_t list = descriptor.find(L"D:");
    // Without a list everybody may do everything.
    if (list == descriptor.npos || descriptor.find(L"NO_ACCESS_CONTROL") != descriptor.npos) {
        return true;
    }
    const std::wstring_view owner = OwnerIn(descriptor);
    while ((list = descriptor.find(L'(', list)) != descriptor.npos) {
        const std::wstring_view rest = std::wstring_view(descriptor).substr(++list);
        if (Gives(EntryIn(rest.substr(0, rest.find(L')'))), rights, owner)) return true;
    }
    return false;
}

bool IsOwnedByTheSystem(const std::wstring& path, const std::wstring& descriptor)
{
    const std::wstring owner(OwnerIn(descriptor));
    if (owner.empty()) return false;
    if (IsTrusted(owner)) return true;
    for (std::wstring above = FolderOf(path); !above.empty(); above = FolderOf(above)) {
        const std::wstring rights_above = DescriptorOf(above);
        if (OwnerIn(rights_above) != owner) return false;
    }
    return true;
}
