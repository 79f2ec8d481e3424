// The registry's functions.

#include "platform/registry.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <functional>
#include <utility>

#include "platform/virtual/base/names.h"
#include "platform/virtual/core/call.h"
#include "platform/virtual/core/waitable.h"
#include "platform/virtual/registry/registry.h"

using namespace virtual_pc;

namespace {

// Codes that only this file returns.
constexpr LSTATUS kErrorBadPathname = 161;
constexpr LSTATUS kErrorKeyDeleted = 1018;
constexpr LSTATUS kErrorChildMustBeVolatile = 1021;
constexpr LSTATUS kErrorDatatypeMismatch = 1629;

constexpr std::size_t kLongestValueName = 16'383;  // characters

// What an open key's handle stands for.
class OpenKey final : public Object
{
public:
    OpenKey(RegistryPath key_path, std::shared_ptr<RegistryNode> key, REGSAM rights)
        : path(std::move(key_path)), node(std::move(key)), access(rights)
    {
    }
    std::string_view Kind() const override { return "registry key"; }
    std::wstring Name() const override { return Registry::Spell(path); }

    void Closed() override
    {
        if (at_close) at_close();
    }

    const RegistryPath path;
    const std::shared_ptr<RegistryNode> node;
    const REGSAM access;
    std::function<void()> at_close;  // while a change is awaited
};

Function fn_reg_create_key{"RegCreateKeyW", Failing::status};
Function fn_reg_create_key_ex{"RegCreateKeyExW", Failing::status};
Function fn_reg_notify_change{"RegNotifyChangeKeyValue", Failing::status};
Function fn_reg_open_key{"RegOpenKeyW", Failing::status};
Function fn_reg_open_key_ex{"RegOpenKeyExW", Failing::status};
Function fn_reg_close_key{"RegCloseKey", Failing::status, Role::releases};
Function fn_reg_get_value{"RegGetValueW", Failing::status};
Function fn_reg_query_value_ex{"RegQueryValueExW", Failing::status};
Function fn_reg_delete_value{"RegDeleteValueW", Failing::status};
Function fn_reg_delete_tree{"RegDeleteTreeW", Failing::status};
Function fn_reg_set_value_ex{"RegSetValueExW", Failing::status, Role::acts};
Function fn_reg_flush_key{"RegFlushKey", Failing::status};

struct Root
{
    HKEY key;
    RegistryRoot root;
};
const Root kRoots[] = {{HKEY_LOCAL_MACHINE, RegistryRoot::local_machine},
                       {HKEY_CURRENT_USER, RegistryRoot::current_user},
                       {HKEY_CLASSES_ROOT, RegistryRoot::classes}};

bool IsRoot(HKEY key) { return std::ranges::find(kRoots, key, &Root::key) != std::end(kRoots); }

// The path that a handle and a path below it lead to; an error when the handle is not open or, for
// the key itself, lacks a right. The rights of a handle do not limit what is opened below it. The
// registry functions do not change the last error.
LSTATUS PathOf(Call& call, HKEY key, LPCWSTR below, RegistryPath& path, REGSAM right = 0)
{
    const auto root = std::ranges::find(kRoots, key, &Root::key);
    if (root != std::end(kRoots)) {
        path = {root->root, L""};
    } else {
        const DWORD last_error = call.thread.last_error;
        const auto* open = call.Find<OpenKey>(reinterpret_cast<HANDLE>(key));
        call.thread.last_error = last_error;
        if (!open) return call.Fails() ? static_cast<LSTATUS>(call.error()) : ERROR_INVALID_HANDLE;
        if (open->node->deleted) return kErrorKeyDeleted;
        if ((!below || !*below) && (open->access & right) != right) return ERROR_ACCESS_DENIED;
        path = open->path;
    }
    const bool of_classes = path.root == RegistryRoot::classes && path.path.empty();
    if (below && *below == L'\\' && !of_classes) return kErrorBadPathname;
    if (!below || !*below) return ERROR_SUCCESS;
    path.path += (path.path.empty() ? L"" : L"\\") + std::wstring(below);
    const bool fails = call.faulty() && call.FailsFor(Registry::Spell(path));
    return fails ? static_cast<LSTATUS>(call.error()) : ERROR_SUCCESS;
}

LSTATUS OpenAt(Call& call, const RegistryPath& path, std::shared_ptr<RegistryNode> node,
               REGSAM access, HKEY* result)
{
    *result = nullptr;
    if (!node) return ERROR_FILE_NOT_FOUND;
    *result =
        reinterpret_cast<HKEY>(call.Open(std::make_shared<OpenKey>(path, std::move(node), access)));
    return ERROR_SUCCESS;
}

// With a bad handle it does not touch `result`.
LSTATUS OpenExisting(Function& function, HKEY key, LPCWSTR subKey, REGSAM access, HKEY* result)
{
    Call call(function);
    if (!result) return ERROR_INVALID_PARAMETER;
    if (call.Fails()) return static_cast<LSTATUS>(call.error());
    RegistryPath path;
    if (const LSTATUS error = PathOf(call, key, subKey, path)) return error;
    if (IsRoot(key) && (!subKey || !*subKey)) {
        *result = key;
        return ERROR_SUCCESS;
    }
    return OpenAt(call, path, call.machine.registry.FindKey(path), access, result);
}

// The type restrictions, one bit for each type.
struct TypeBit
{
    DWORD type;
    DWORD bit;
};
constexpr TypeBit kTypeBits[] = {
    {REG_NONE, RRF_RT_REG_NONE},           {REG_SZ, RRF_RT_REG_SZ},
    {REG_EXPAND_SZ, RRF_RT_REG_EXPAND_SZ}, {REG_BINARY, RRF_RT_REG_BINARY},
    {REG_DWORD, RRF_RT_REG_DWORD},         {REG_MULTI_SZ, RRF_RT_REG_MULTI_SZ},
    {REG_QWORD, RRF_RT_REG_QWORD}};

// The variables that the system expands for a service; the names in capitals.
constexpr std::pair<std::wstring_view, std::wstring_view> kVariables[] = {
    {L"PROGRAMDATA", LR"(C:\ProgramData)"},
    {L"PROGRAMFILES", LR"(C:\Program Files)"},
    {L"SYSTEMDRIVE", L"C:"},
    {L"SYSTEMROOT", LR"(C:\Windows)"},
    {L"WINDIR", LR"(C:\Windows)"}};

// The text with each %NAME% replaced by the variable of that name; an unknown one stays.
std::wstring Expanded(const std::wstring& text)
{
    std::wstring expanded;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text[at] == L'%' ? text.find(L'%', at + 1) : text.npos;
        const std::wstring name =
            end == text.npos ? std::wstring() : text.substr(at + 1, end - at - 1);
        const auto known = std::ranges::find_if(
            kVariables, [&](const auto& variable) { return SameName(variable.first, name); });
        if (known == std::end(kVariables)) {
            expanded += text[at++];
        } else {
            expanded += known->second;
            at = end + 1;
        }
    }
    return expanded;
}

LSTATUS CheckType(const RegistryValue& value, DWORD flags)
{
    const auto known = std::ranges::find(kTypeBits, value.type, &TypeBit::type);
    const bool any = (flags & RRF_RT_ANY) == RRF_RT_ANY;
    if (!any && (known == std::end(kTypeBits) || !(flags & known->bit))) {
        return ERROR_UNSUPPORTED_TYPE;
    }
    // RRF_RT_DWORD also admits REG_BINARY, but only of the size of a DWORD.
    const bool as_number = value.type == REG_BINARY && (flags & RRF_RT_ANY) == RRF_RT_DWORD;
    if (as_number && value.data.size() != sizeof(DWORD)) return kErrorDatatypeMismatch;
    return ERROR_SUCCESS;
}

std::vector<BYTE> Terminated(const RegistryValue& value)
{
    std::vector<BYTE> data = value.data;
    if (data.empty()) return data;  // a text without a byte is read as no byte
    if (value.type != REG_SZ && value.type != REG_EXPAND_SZ && value.type != REG_MULTI_SZ) {
        return data;
    }
    data.resize(data.size() / sizeof(wchar_t) * sizeof(wchar_t));
    wchar_t last = L'x';
    if (!data.empty()) {
        std::memcpy(&last, data.data() + data.size() - sizeof(wchar_t), sizeof(wchar_t));
    }
    if (last != L'\0') data.resize(data.size() + sizeof(wchar_t));
    return data;
}

// Whether the flags may read texts with variables only as they are, without RRF_NOEXPAND. Windows 7
// takes this for a mistake; from 8 on no value is of that type.
bool ForbidsAllTexts(const Call& call, DWORD flags)
{
    const bool unexpanded = (flags & RRF_RT_ANY) != RRF_RT_ANY && (flags & RRF_RT_REG_EXPAND_SZ) &&
                            !(flags & RRF_NOEXPAND);
    return unexpanded && !call.machine.AtLeast(kWindows8);
}

// Copies bytes to the caller, as far as it has given a place for them.
LSTATUS GiveBytes(const std::vector<BYTE>& bytes, PVOID data, LPDWORD size)
{
    const DWORD room = size ? *size : 0;
    if (size) *size = static_cast<DWORD>(bytes.size());
    if (!data) return ERROR_SUCCESS;
    if (room < bytes.size()) return ERROR_MORE_DATA;
    std::ranges::copy(bytes, static_cast<BYTE*>(data));
    return ERROR_SUCCESS;
}

// Deletes all that is below a key, and its values.
LSTATUS Empty(Call& call, const RegistryPath& path)
{
    const std::shared_ptr<RegistryNode> node = call.machine.registry.FindKey(path);
    if (!node) return ERROR_FILE_NOT_FOUND;
    const std::wstring spelled = Registry::Spell(path);
    while (!node->keys.empty()) {
        call.machine.registry.DeleteKey(spelled + L"\\" + node->keys.begin()->first);
    }
    while (!node->values.empty()) {
        call.machine.registry.DeleteValue(path, std::wstring(node->values.begin()->first));
    }
    return ERROR_SUCCESS;
}

// Marks the first key on the way to `path` that does not exist yet, and so all below it, as
// volatile, when it is made.
LSTATUS CreateVolatile(Call& call, const RegistryPath& path, bool wanted)
{
    Registry& registry = call.machine.registry;
    if (registry.FindKey(path)) return ERROR_SUCCESS;
    RegistryPath first = path;
    RegistryPath parent = path;
    for (std::size_t last; (last = parent.path.rfind(L'\\')) != parent.path.npos;) {
        first = parent;
        parent.path.resize(last);
        if (registry.FindKey(parent)) break;
    }
    const std::shared_ptr<RegistryNode> above = registry.FindKey(parent);
    if (above && above->is_volatile && !wanted) return kErrorChildMustBeVolatile;
    if (wanted) registry.CreateKey(first)->is_volatile = true;
    return ERROR_SUCCESS;
}

}  // namespace

extern "C" {

LSTATUS WINAPI RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD, LPWSTR, DWORD options,
                               REGSAM access, LPSECURITY_ATTRIBUTES, HKEY* result,
                               LPDWORD disposition)
{
    Call call(fn_reg_create_key_ex);
    if (!result) return ERROR_INVALID_PARAMETER;
    if (call.Fails()) return static_cast<LSTATUS>(call.error());
    RegistryPath path;
    if (const LSTATUS error = PathOf(call, key, subKey, path)) return error;
    const bool existed = call.machine.registry.FindKey(path) != nullptr;
    if (const LSTATUS error = CreateVolatile(call, path, (options & REG_OPTION_VOLATILE) != 0)) {
        return error;
    }
    if (disposition) *disposition = existed ? REG_OPENED_EXISTING_KEY : REG_CREATED_NEW_KEY;
    return OpenAt(call, path, call.machine.registry.CreateKey(path), access, result);
}

LSTATUS WINAPI RegNotifyChangeKeyValue(HKEY key, BOOL subtree, DWORD filter, HANDLE event,
                                       BOOL asynchronous)
{
    Call call(fn_reg_notify_change);
    if (call.Fails()) return static_cast<LSTATUS>(call.error());
    RegistryPath path;
    if (const LSTATUS error = PathOf(call, key, nullptr, path, KEY_NOTIFY)) return error;
    // A wait without an event is not modelled.
    if (!asynchronous) return ERROR_INVALID_PARAMETER;
    const DWORD last_error = call.thread.last_error;
    const auto signalled = call.FindShared<Waitable>(event);
    call.thread.last_error = last_error;
    if (!signalled) return ERROR_INVALID_HANDLE;
    // Closing the handle signals the event, too: the watch ends with whichever comes first.
    auto* const open =
        dynamic_cast<OpenKey*>(call.machine.handles.Find(reinterpret_cast<HANDLE>(key)));
    const std::weak_ptr<Waitable> told = signalled;
    const auto tell = [told] {
        if (const auto waitable = told.lock()) waitable->Signal();
    };
    if (open) open->at_close = tell;
    call.machine.registry.Watch(path, subtree != FALSE, filter, tell);
    return ERROR_SUCCESS;
}

LSTATUS WINAPI RegCreateKeyW(HKEY key, LPCWSTR subKey, HKEY* result)
{
    Call call(fn_reg_create_key);
    if (!result) return ERROR_INVALID_PARAMETER;
    if (call.Fails()) return static_cast<LSTATUS>(call.error());
    RegistryPath path;
    if (const LSTATUS error = PathOf(call, key, subKey, path)) return error;
    return OpenAt(call, path, call.machine.registry.CreateKey(path), KEY_ALL_ACCESS, result);
}

LSTATUS WINAPI RegOpenKeyW(HKEY key, LPCWSTR subKey, HKEY* result)
{
    return OpenExisting(fn_reg_open_key, key, subKey, KEY_ALL_ACCESS, result);
}

LSTATUS WINAPI RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD, REGSAM access, HKEY* result)
{
    return OpenExisting(fn_reg_open_key_ex, key, subKey, access, result);
}

LSTATUS WINAPI RegCloseKey(HKEY key)
{
    Call call(fn_reg_close_key);
    if (call.Fails()) return static_cast<LSTATUS>(call.error());
    if (IsRoot(key)) return ERROR_SUCCESS;
    const DWORD last_error = call.thread.last_error;
    const bool open = call.Find<OpenKey>(reinterpret_cast<HANDLE>(key)) != nullptr;
    call.thread.last_error = last_error;
    if (!open) return ERROR_INVALID_HANDLE;
    call.machine.handles.Close(reinterpret_cast<HANDLE>(key));
    return ERROR_SUCCESS;
}

LSTATUS WINAPI RegGetValueW(HKEY key, LPCWSTR subKey, LPCWSTR name, DWORD flags, LPDWORD type,
                            PVOID data, LPDWORD size)
{
    Call call(fn_reg_get_value);
    if (call.Fails()) return static_cast<LSTATUS>(call.error());
    if ((data && !size) || ForbidsAllTexts(call, flags)) return ERROR_INVALID_PARAMETER;
    RegistryPath path;
    if (const LSTATUS error = PathOf(call, key, subKey, path, KEY_QUERY_VALUE)) return error;
    const std::shared_ptr<RegistryNode> node = call.machine.registry.FindKey(path);
    if (!node) return ERROR_FILE_NOT_FOUND;
    const auto found = node->values.find(name ? name : L"");
    if (found == node->values.end()) return ERROR_FILE_NOT_FOUND;

    RegistryValue value = found->second;
    // REG_EXPAND_SZ is expanded to REG_SZ, unless RRF_NOEXPAND is given.
    if (value.type == REG_EXPAND_SZ && !(flags & RRF_NOEXPAND)) {
        value = RegistryValue::String(Expanded(value.Text()));
    }
    if (type) *type = value.type;
    // A value of a type that is not allowed is given all the same, beside the error.
    const LSTATUS refused = CheckType(value, flags);
    const LSTATUS given = GiveBytes(Terminated(value), data, size);
    return refused ? refused : given;
}

LSTATUS WINAPI RegSetValueExW(HKEY key, LPCWSTR name, DWORD, DWORD type, const BYTE* data,
                              DWORD size)
{
    Call call(fn_reg_set_value_ex);
    if (call.Fails()) return static_cast<LSTATUS>(call.error());
    if (!data && size > 0) return ERROR_NOACCESS;
    if (name && std::wcslen(name) > kLongestValueName) return ERROR_INVALID_PARAMETER;
    RegistryPath path;
    if (const LSTATUS error = PathOf(call, key, nullptr, path, KEY_SET_VALUE)) return error;
    if (call.Pretends()) return ERROR_SUCCESS;
    RegistryValue value{type, {data, data + size}};
    // Effect "registry": the key's `path`, the value's `name` and `type`, and its `data`: the
    // number, the text, or how many bytes.
    if (call.machine.journal.Listened("registry")) {
        DWORD number = size;
        if (type == REG_DWORD && size == sizeof(number)) std::memcpy(&number, data, size);
        const bool text = type == REG_SZ || type == REG_EXPAND_SZ;
        call.machine.journal.Record(
            "registry", {{"path", Registry::Spell(path)},
                         {"name", std::wstring(name ? name : L"")},
                         {"type", std::uint64_t{type}},
                         {"data", text ? Value(value.Text()) : Value(std::uint64_t{number})}});
    }
    call.machine.registry.SetValue(path, name ? name : L"", std::move(value));
    return call.Denies() ? static_cast<LSTATUS>(call.error()) : ERROR_SUCCESS;
}

LSTATUS WINAPI RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD, LPDWORD type, BYTE* data,
                                LPDWORD size)
{
    Call call(fn_reg_query_value_ex);
    if (call.Fails()) return static_cast<LSTATUS>(call.error());
    if (data && !size) return ERROR_INVALID_PARAMETER;
    RegistryPath path;
    if (const LSTATUS error = PathOf(call, key, nullptr, path, KEY_QUERY_VALUE)) return error;
    const std::shared_ptr<RegistryNode> node = call.machine.registry.FindKey(path);
    if (!node) return ERROR_FILE_NOT_FOUND;
    const auto found = node->values.find(name ? name : L"");
    if (found == node->values.end()) {
        if (size && !data) *size = 0;
        return ERROR_FILE_NOT_FOUND;
    }
    if (type) *type = found->second.type;
    return GiveBytes(found->second.data, data, size);
}

LSTATUS WINAPI RegDeleteValueW(HKEY key, LPCWSTR name)
{
    Call call(fn_reg_delete_value);
    if (call.Fails()) return static_cast<LSTATUS>(call.error());
    RegistryPath path;
    if (const LSTATUS error = PathOf(call, key, nullptr, path, KEY_SET_VALUE)) return error;
    return call.machine.registry.DeleteValue(path, name ? name : L"") ? ERROR_SUCCESS
                                                                      : ERROR_FILE_NOT_FOUND;
}

LSTATUS WINAPI RegFlushKey(HKEY key)
{
    Call call(fn_reg_flush_key);
    if (call.Fails()) return static_cast<LSTATUS>(call.error());
    RegistryPath path;
    if (const LSTATUS error = PathOf(call, key, nullptr, path)) return error;
    call.machine.registry.Flush(path);
    return ERROR_SUCCESS;
}

LSTATUS WINAPI RegDeleteTreeW(HKEY key, LPCWSTR subKey)
{
    Call call(fn_reg_delete_tree);
    if (call.Fails()) return static_cast<LSTATUS>(call.error());
    RegistryPath path;
    if (const LSTATUS error = PathOf(call, key, subKey, path)) return error;
    if (!subKey || !*subKey) return Empty(call, path);
    const std::wstring spelled = Registry::Spell(path);
    return call.machine.registry.DeleteKey(spelled) ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
}
}
