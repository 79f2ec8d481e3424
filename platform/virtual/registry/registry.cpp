#include "platform/virtual/registry/registry.h"

#include <algorithm>
#include <cstring>
#include <cwctype>
#include <filesystem>
#include <stdexcept>

#include "platform/virtual/base/text.h"
#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/unwritten.h"
#include "platform/virtual/registry/reg_file.h"

namespace virtual_pc {
namespace {

struct RootName
{
    std::wstring_view name;
    RegistryRoot root;
};
constexpr RootName kRootNames[] = {
    {L"HKEY_LOCAL_MACHINE", RegistryRoot::local_machine}, {L"HKLM", RegistryRoot::local_machine},
    {L"HKEY_CURRENT_USER", RegistryRoot::current_user},   {L"HKCU", RegistryRoot::current_user},
    {L"HKEY_CLASSES_ROOT", RegistryRoot::classes},        {L"HKCR", RegistryRoot::classes},
};

// Keys that every PC has and the service expects.
constexpr const wchar_t* kFirstKeys[] = {
    LR"(HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application)",
    LR"(HKLM\SOFTWARE\Classes\AppID)",
    LR"(HKLM\SOFTWARE\Classes\CLSID)",
    LR"(HKLM\SOFTWARE\Classes\Interface)",
    LR"(HKLM\SOFTWARE\Classes\TypeLib)",
    LR"(HKCU\Software\Classes)",
};

std::vector<std::wstring> KeyNames(std::wstring_view path) { return PartsOf(path, L'\\'); }

// Splits a path into its parent's path and its last name.
std::pair<std::wstring_view, std::wstring_view> SplitLast(std::wstring_view path)
{
    const std::size_t last = path.rfind(L'\\');
    if (last == path.npos) return {{}, path};
    return {path.substr(0, last), path.substr(last + 1)};
}

}  // namespace

// --- Values ---

RegistryValue RegistryValue::Dword(DWORD value)
{
    RegistryValue result{REG_DWORD, std::vector<BYTE>(sizeof(value))};
    std::memcpy(result.data.data(), &value, sizeof(value));
    return result;
}

RegistryValue RegistryValue::String(std::wstring_view text, DWORD type)
{
    RegistryValue result{type, std::vector<BYTE>((text.size() + 1) * sizeof(wchar_t))};
    std::memcpy(result.data.data(), text.data(), text.size() * sizeof(wchar_t));
    return result;
}

std::wstring RegistryValue::Text() const
{
    std::wstring text(data.size() / sizeof(wchar_t), L'\0');
    if (!data.empty()) std::memcpy(text.data(), data.data(), text.size() * sizeof(wchar_t));
    return text.substr(0, text.find(L'\0'));
}

// --- The tree ---

std::shared_ptr<RegistryNode> RegistryNode::Find(std::wstring_view path)
{
    std::shared_ptr<RegistryNode> node = shared_from_this();
    for (std::size_t from = 0; from < path.size();) {
        const std::size_t to = std::min(path.find(L'\\', from), path.size());
        const std::wstring_view name = path.substr(from, to - from);
        from = to + 1;
        if (name.empty()) continue;
        const auto found = node->keys.find(name);
        if (found == node->keys.end()) return nullptr;
        node = found->second;
    }
    return node;
}

std::shared_ptr<RegistryNode> RegistryNode::Create(std::wstring_view path)
{
    std::shared_ptr<RegistryNode> node = shared_from_this();
    for (const std::wstring& name : KeyNames(path)) {
        std::shared_ptr<RegistryNode>& child = node->keys[name];
        if (!child) {
            child = std::make_shared<RegistryNode>();
            child->is_volatile = node->is_volatile;
        }
        node = child;
    }
    return node;
}

void RegistryNode::DeleteVolatile()
{
    std::erase_if(keys, [](const auto& named) {
        if (named.second->is_volatile) named.second->MarkDeleted(true);
        return named.second->is_volatile;
    });
    for (const auto& [name, child] : keys) child->DeleteVolatile();
}

bool RegistryNode::Delete(std::wstring_view path)
{
    std::vector<std::wstring> names = KeyNames(path);
    if (names.empty()) return false;
    std::shared_ptr<RegistryNode> parent = shared_from_this();
    for (std::size_t i = 0; i + 1 < names.size(); ++i) {
        parent = parent->Find(names[i]);
        if (!parent) return false;
    }
    const auto found = parent->keys.find(names.back());
    if (found == parent->keys.end()) return false;
    found->second->MarkDeleted(true);
    parent->keys.erase(found);
    return true;
}

void RegistryNode::MarkDeleted(bool is_deleted)
{
    deleted = is_deleted;
    for (const auto& [name, child] : keys) child->MarkDeleted(is_deleted);
}

// --- The registry ---

Registry::Registry(Machine& machine)
    : m_machine(machine),
      m_local_machine(std::make_shared<RegistryNode>()),
      m_current_user(std::make_shared<RegistryNode>())
{
    const Hold hold(machine);
    for (const wchar_t* path : kFirstKeys) CreateKey(path);
}

RegistryPath Registry::Parse(std::wstring_view path)
{
    const std::size_t end = std::min(path.find(L'\\'), path.size());
    for (const RootName& known : kRootNames) {
        if (!SameName(known.name, path.substr(0, end))) continue;
        return {known.root, std::wstring(path.substr(std::min(end + 1, path.size())))};
    }
    throw std::invalid_argument("\"" + ToUtf8(path) + "\" does not begin with HKLM, HKCU or HKCR");
}

std::wstring Registry::Spell(const RegistryPath& path)
{
    const auto known = std::ranges::find(kRootNames, path.root, &RootName::root);
    const std::wstring root((known + 1)->name);  // the short form
    return path.path.empty() ? root : root + L"\\" + path.path;
}

// HKCR merges two roots: a key that the user's classes have is taken from there, any other from the
// machine's classes.
RegistryPath Registry::Resolve(const RegistryPath& path) const
{
    if (path.root != RegistryRoot::classes) return path;
    const std::wstring below = LR"(Software\Classes\)" + path.path;
    if (!path.path.empty() && m_current_user->Find(below)) {
        return {RegistryRoot::current_user, below};
    }
    return {RegistryRoot::local_machine, below};
}

std::shared_ptr<RegistryNode> Registry::RootOf(RegistryRoot root) const
{
    return root == RegistryRoot::current_user ? m_current_user : m_local_machine;
}

std::shared_ptr<RegistryNode> Registry::FindKey(const RegistryPath& path) const
{
    Hold::Require();
    const RegistryPath resolved = Resolve(path);
    return RootOf(resolved.root)->Find(resolved.path);
}

std::shared_ptr<RegistryNode> Registry::CreateKey(const RegistryPath& path)
{
    Hold::Require();
    if (std::shared_ptr<RegistryNode> known = FindKey(path)) return known;
    // A new key of HKCR goes to the user's classes when they have its parent, else to the
    // machine's.
    RegistryPath target = Resolve(path);
    if (path.root == RegistryRoot::classes) {
        const std::size_t last = path.path.rfind(L'\\');
        if (last != path.path.npos) {
            const RegistryPath parent = Resolve({RegistryRoot::classes, path.path.substr(0, last)});
            if (RootOf(parent.root)->Find(parent.path)) target.root = parent.root;
        }
    }
    // The first of the keys that are missing on the way there takes the others along.
    std::shared_ptr<RegistryNode> parent = RootOf(target.root);
    for (const std::wstring& name : KeyNames(target.path)) {
        if (const std::shared_ptr<RegistryNode> child = parent->Find(name)) {
            parent = child;
            continue;
        }
        m_machine.unwritten.Note(HiveOf(target), [parent, name] { parent->Delete(name); });
        break;
    }
    std::shared_ptr<RegistryNode> made = RootOf(target.root)->Create(target.path);
    Changed({target.root, std::wstring(SplitLast(target.path).first)}, REG_NOTIFY_CHANGE_NAME);
    return made;
}

void Registry::DeleteVolatileKeys()
{
    const Hold hold(m_machine);
    m_local_machine->DeleteVolatile();
    m_current_user->DeleteVolatile();
}

void Registry::Watch(const RegistryPath& path, bool subtree, DWORD filter,
                     std::function<void()> changed)
{
    Hold::Require();
    m_watchers.push_back({Resolve(path), subtree, filter, std::move(changed)});
}

void Registry::Changed(const RegistryPath& resolved, DWORD what)
{
    const auto concerns = [&](const Watcher& watcher) {
        if (watcher.path.root != resolved.root || !(watcher.filter & what)) return false;
        const std::wstring_view changed = resolved.path;
        const std::wstring_view watched = watcher.path.path;
        if (SameName(changed, watched)) return true;
        return watcher.subtree && changed.size() > watched.size() &&
               SameName(changed.substr(0, watched.size()), watched) &&
               (watched.empty() || changed[watched.size()] == L'\\');
    };
    const auto told =
        std::stable_partition(m_watchers.begin(), m_watchers.end(),
                              [&](const Watcher& watcher) { return !concerns(watcher); });
    const std::vector<Watcher> tell(told, m_watchers.end());
    m_watchers.erase(told, m_watchers.end());
    for (const Watcher& watcher : tell) watcher.changed();
}

std::wstring Registry::HiveOf(const RegistryPath& resolved)
{
    if (resolved.root == RegistryRoot::current_user) return L"user";
    const std::wstring_view first = resolved.path;
    return SameName(first.substr(0, first.find(L'\\')), kSystemHive) ? std::wstring(kSystemHive)
                                                                     : L"SOFTWARE";
}

void Registry::Flush(const RegistryPath& path)
{
    const RegistryPath resolved = Resolve(path);
    m_machine.unwritten.Flush(HiveOf(resolved));
    // The root has no hive of its own.
    if (resolved.path.empty()) m_machine.unwritten.Flush(kSystemHive);
}

void Registry::SetValue(const RegistryPath& path, std::wstring_view name, RegistryValue value)
{
    const std::shared_ptr<RegistryNode> key = CreateKey(path);
    const auto [place, fresh] = key->values.try_emplace(std::wstring(name));
    if (!key->is_volatile) {
        const auto was = fresh ? std::nullopt : std::optional(place->second);
        m_machine.unwritten.Note(HiveOf(Resolve(path)), [key, name = place->first, was] {
            if (was) {
                key->values[name] = *was;
            } else {
                key->values.erase(name);
            }
        });
    }
    place->second = std::move(value);
    Changed(Resolve(path), REG_NOTIFY_CHANGE_LAST_SET);
}

bool Registry::DeleteValue(const RegistryPath& path, std::wstring_view name)
{
    const std::shared_ptr<RegistryNode> key = FindKey(path);
    auto deleted =
        key ? key->values.extract(std::wstring(name)) : decltype(key->values)::node_type();
    if (!deleted) return false;
    m_machine.unwritten.Note(HiveOf(Resolve(path)), [key, deleted_name = deleted.key(),
                                                     was = std::move(deleted.mapped())] {
        key->values[deleted_name] = was;
    });
    Changed(Resolve(path), REG_NOTIFY_CHANGE_LAST_SET);
    return true;
}

std::shared_ptr<RegistryNode> Registry::CreateKey(std::wstring_view path)
{
    Hold::Require();
    return CreateKey(Parse(path));
}

void Registry::Set(std::wstring_view path, std::wstring_view name, RegistryValue value)
{
    const Hold hold(m_machine);
    SetValue(Parse(path), name, std::move(value));
}

void Registry::SetDword(std::wstring_view path, std::wstring_view name, DWORD value)
{
    Set(path, name, RegistryValue::Dword(value));
}

void Registry::SetString(std::wstring_view path, std::wstring_view name, std::wstring_view text)
{
    Set(path, name, RegistryValue::String(text));
}

std::optional<RegistryValue> Registry::Get(std::wstring_view path, std::wstring_view name) const
{
    const Hold hold(m_machine);
    const std::shared_ptr<RegistryNode> key = FindKey(Parse(path));
    if (!key) return std::nullopt;
    const auto found = key->values.find(std::wstring(name));
    if (found == key->values.end()) return std::nullopt;
    return found->second;
}

std::optional<DWORD> Registry::GetDword(std::wstring_view path, std::wstring_view name) const
{
    const std::optional<RegistryValue> value = Get(path, name);
    DWORD number = 0;
    if (!value || value->type != REG_DWORD || value->data.size() != sizeof(number)) {
        return std::nullopt;
    }
    std::memcpy(&number, value->data.data(), sizeof(number));
    return number;
}

std::optional<std::wstring> Registry::GetString(std::wstring_view path,
                                                std::wstring_view name) const
{
    const std::optional<RegistryValue> value = Get(path, name);
    if (!value || (value->type != REG_SZ && value->type != REG_EXPAND_SZ)) return std::nullopt;
    return value->Text();
}

bool Registry::HasKey(std::wstring_view path) const
{
    const Hold hold(m_machine);
    return FindKey(Parse(path)) != nullptr;
}

bool Registry::DeleteKey(std::wstring_view path)
{
    const Hold hold(m_machine);
    const RegistryPath resolved = Resolve(Parse(path));
    const std::shared_ptr<RegistryNode> key = RootOf(resolved.root)->Find(resolved.path);
    if (!key || !RootOf(resolved.root)->Delete(resolved.path)) return false;
    const auto [parent_path, name] = SplitLast(resolved.path);
    m_machine.unwritten.Note(HiveOf(resolved), [parent = RootOf(resolved.root)->Find(parent_path),
                                                name = std::wstring(name), key] {
        parent->keys[name] = key;
        key->MarkDeleted(false);
    });
    Changed({resolved.root, std::wstring(parent_path)}, REG_NOTIFY_CHANGE_NAME);
    return true;
}

bool Registry::DeleteValue(std::wstring_view path, std::wstring_view name)
{
    const Hold hold(m_machine);
    return DeleteValue(Parse(path), name);
}

// --- Files ---

void Registry::Import(const std::string& file)
{
    // Read the whole file before changing anything.
    const std::vector<RegFileChange> changes = ReadRegFile(file);
    const Hold hold(m_machine);
    for (const RegFileChange& change : changes) {
        switch (change.what) {
            case RegFileChange::What::key:
                CreateKey(change.path);
                break;
            case RegFileChange::What::delete_key:
                DeleteKey(Spell(change.path));
                break;
            case RegFileChange::What::value:
                SetValue(change.path, change.name, change.value);
                break;
            case RegFileChange::What::delete_value:
                DeleteValue(change.path, change.name);
                break;
        }
    }
}

void Registry::Export(const std::string& file, std::wstring_view path) const
{
    const Hold hold(m_machine);
    const RegistryPath resolved = Resolve(Parse(path));
    const std::shared_ptr<RegistryNode> key = RootOf(resolved.root)->Find(resolved.path);
    if (!key) throw std::runtime_error("there is no key \"" + ToUtf8(path) + "\"");
    RegFileWriter writer;
    writer.Add(resolved, *key);
    writer.Write(file);
}

void Registry::Load(const std::string& file)
{
    if (std::filesystem::exists(file)) Import(file);
}

void Registry::Save(const std::string& file) const
{
    const Hold hold(m_machine);
    RegFileWriter writer;
    writer.Add({RegistryRoot::local_machine, L""}, *m_local_machine);
    writer.Add({RegistryRoot::current_user, L""}, *m_current_user);
    writer.Write(file);
}

}  // namespace virtual_pc
