// Who may open a file: the rights of its owner and others, and what the programs that have it open
// let others do.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/base.h"

namespace virtual_pc {

// How a program has a file open. The file stays open for as long as this exists.
struct OpenMode
{
    std::string file;  // its path on the host
    DWORD access;      // GENERIC_...
    DWORD share;       // FILE_SHARE_...
};

class FileRights
{
public:
    // Who may write a file or into a folder; a file without rights of its own has those of its
    // folder.
    struct Rights
    {
        std::wstring owner;
        // Users, or L"Users" for all of them; nothing for everybody.
        std::optional<std::vector<std::wstring>> writers;
    };

    void Set(const std::string& file, Rights rights) { m_rights[file] = std::move(rights); }
    void Clear(const std::string& file) { m_rights.erase(file); }
    bool MayWrite(const std::string& file, std::wstring_view user) const;
    std::optional<std::vector<std::wstring>> WritersOf(const std::string& file) const;
    // SYSTEM, unless a user's program has made the file, or the rights name another.
    std::wstring OwnerOf(const std::string& file) const;
    void Made(const std::string& file, std::wstring_view user);

    // Opens a file for a program; null when that and what another program does with it exclude each
    // other.
    std::shared_ptr<OpenMode> Open(const std::string& file, DWORD access, DWORD share);

private:
    std::map<std::string, Rights> m_rights;  // by the path on the host
    std::map<std::string, std::wstring> m_makers;
    std::vector<std::weak_ptr<OpenMode>> m_open;
};

}  // namespace virtual_pc
