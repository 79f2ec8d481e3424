#include "platform/virtual/disk/file_rights.h"

#include <algorithm>

#include "platform/file.h"
#include "platform/virtual/base/names.h"

namespace virtual_pc {
namespace {

constexpr const wchar_t* kSystem = L"SYSTEM";
constexpr const wchar_t* kAllUsers = L"Users";

// The sharing that an access needs of the others.
DWORD Needs(DWORD access)
{
    return ((access & GENERIC_READ) ? FILE_SHARE_READ : 0) |
           ((access & GENERIC_WRITE) ? FILE_SHARE_WRITE : 0);
}

}  // namespace

std::optional<std::vector<std::wstring>> FileRights::WritersOf(const std::string& file) const
{
    for (std::string at = file; !at.empty(); at.resize(std::min(at.rfind('/'), at.size()))) {
        const auto known = m_rights.find(at);
        if (known != m_rights.end()) return known->second.writers;
        if (at.find('/') == at.npos) break;
    }
    return std::nullopt;
}

bool FileRights::MayWrite(const std::string& file, std::wstring_view user) const
{
    const auto writers = WritersOf(file);
    return !writers || std::ranges::any_of(*writers, [&](const std::wstring& writer) {
        return SameName(writer, user) || writer == kAllUsers;
    });
}

std::wstring FileRights::OwnerOf(const std::string& file) const
{
    if (const auto known = m_rights.find(file); known != m_rights.end()) return known->second.owner;
    const auto made = m_makers.find(file);
    return made != m_makers.end() ? made->second : kSystem;
}

void FileRights::Made(const std::string& file, std::wstring_view user)
{
    m_rights.erase(file);
    m_makers[file] = user;
}

std::shared_ptr<OpenMode> FileRights::Open(const std::string& file, DWORD access, DWORD share)
{
    std::erase_if(m_open, [](const auto& known) { return known.expired(); });
    for (const auto& known : m_open) {
        const auto other = known.lock();
        if (!other || other->file != file) continue;
        if ((Needs(access) & ~other->share) || (Needs(other->access) & ~share)) return nullptr;
    }
    auto mode = std::make_shared<OpenMode>(OpenMode{file, access, share});
    m_open.push_back(mode);
    return mode;
}

}  // namespace virtual_pc
