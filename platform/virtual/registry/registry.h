// The registry: keys by name without regard to letter case, values with their types.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/registry.h"
#include "platform/virtual/base/names.h"
#include "platform/virtual/core/handles.h"

namespace virtual_pc {

class Machine;

// A value's type and data. Strings are kept as the service sees them: wchar_t with a terminator.
struct RegistryValue
{
    DWORD type = REG_NONE;
    std::vector<BYTE> data;

    static RegistryValue Dword(DWORD value);
    static RegistryValue String(std::wstring_view text, DWORD type = REG_SZ);

    // The data as text, up to the first terminator.
    std::wstring Text() const;
};

// A key. Paths below it are names joined by backslashes; an empty one is the key itself. With the
// machine held.
struct RegistryNode : std::enable_shared_from_this<RegistryNode>
{
    std::map<std::wstring, std::shared_ptr<RegistryNode>, NoCase> keys;
    std::map<std::wstring, RegistryValue, NoCase> values;  // "" is the default value
    bool deleted = false;                                  // its handles fail from then on
    bool is_volatile = false;                              // gone when the PC starts again

    std::shared_ptr<RegistryNode> Find(std::wstring_view path);
    std::shared_ptr<RegistryNode> Create(std::wstring_view path);
    // Deletes the volatile keys below it.
    void DeleteVolatile();
    // With everything below it; false when it is not there.
    bool Delete(std::wstring_view path);
    // Marks this key and all below it as deleted, or as there again.
    void MarkDeleted(bool is_deleted);
};

enum class RegistryRoot
{
    local_machine,
    current_user,
    classes,
};

struct RegistryPath
{
    RegistryRoot root;
    std::wstring path;
};

// Paths name their root in either form: HKLM\Software\... or HKEY_LOCAL_MACHINE\Software\...
// (HKCU, HKCR alike). HKCR shows the user's classes over the machine's, as the real one does.
class Registry
{
public:
    explicit Registry(Machine& machine);

    // Each sets or reads one value, creating missing keys; a path without a known root throws
    // std::invalid_argument that says so.
    void Set(std::wstring_view path, std::wstring_view name, RegistryValue value);
    void SetDword(std::wstring_view path, std::wstring_view name, DWORD value);
    void SetString(std::wstring_view path, std::wstring_view name, std::wstring_view text);
    std::optional<RegistryValue> Get(std::wstring_view path, std::wstring_view name) const;
    std::optional<DWORD> GetDword(std::wstring_view path, std::wstring_view name) const;
    std::optional<std::wstring> GetString(std::wstring_view path, std::wstring_view name) const;
    bool HasKey(std::wstring_view path) const;
    bool DeleteKey(std::wstring_view path);
    bool DeleteValue(std::wstring_view path, std::wstring_view name);

    // Reads a .reg file (version 5; UTF-16 with a byte-order mark, or UTF-8) and applies it whole,
    // or not at all: throws std::runtime_error "FILE:LINE: what is wrong".
    void Import(const std::string& file);
    // Writes everything below `path` as a .reg file (UTF-16). Throws std::runtime_error.
    void Export(const std::string& file, std::wstring_view path) const;

    // The whole registry, kept between runs in one file.
    void Load(const std::string& file);
    void Save(const std::string& file) const;

    // --- For the other facets, by root and path; with the machine held ---
    static RegistryPath Parse(std::wstring_view path);
    // "HKLM\Software\..."
    static std::wstring Spell(const RegistryPath& path);
    // Null when it is not there.
    std::shared_ptr<RegistryNode> FindKey(const RegistryPath& path) const;
    // Finds it, or makes it and the keys on its way.
    std::shared_ptr<RegistryNode> CreateKey(const RegistryPath& path);
    void SetValue(const RegistryPath& path, std::wstring_view name, RegistryValue value);
    // Deletes the volatile keys: the PC is switched off.
    void DeleteVolatileKeys();
    // Calls `changed` at the next change that the filter names (REG_NOTIFY_CHANGE_...), once.
    void Watch(const RegistryPath& path, bool subtree, DWORD filter, std::function<void()> changed);
    // False when it is not there.
    bool DeleteValue(const RegistryPath& path, std::wstring_view name);
    // Puts the hive of a key on the disk, so that a power cut takes nothing of it.
    void Flush(const RegistryPath& path);
    // The hive of the system, in which Windows keeps the power plans as well.
    static constexpr std::wstring_view kSystemHive = L"SYSTEM";

private:
    std::shared_ptr<RegistryNode> CreateKey(std::wstring_view path);
    RegistryPath Resolve(const RegistryPath& path) const;
    static std::wstring HiveOf(const RegistryPath& resolved);
    std::shared_ptr<RegistryNode> RootOf(RegistryRoot root) const;

    struct Watcher
    {
        RegistryPath path;
        bool subtree;
        DWORD filter;
        std::function<void()> changed;
    };
    void Changed(const RegistryPath& resolved, DWORD what);

    Machine& m_machine;
    std::vector<Watcher> m_watchers;
    std::shared_ptr<RegistryNode> m_local_machine;
    std::shared_ptr<RegistryNode> m_current_user;
};

}  // namespace virtual_pc
