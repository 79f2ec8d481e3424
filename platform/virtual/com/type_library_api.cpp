// Type libraries: the objects that programs get, and their registration.

#include <algorithm>
#include <cwchar>

#include "platform/automation.h"
#include "platform/virtual/com/counted.h"
#include "platform/virtual/com/marshal.h"
#include "platform/virtual/com/type_info.h"
#include "platform/virtual/disk/disk.h"
#include "platform/virtual/registry/registry.h"

using namespace virtual_pc;

namespace {

Function fn_load_type_lib{"LoadTypeLib", Failing::hresult};
Function fn_load_reg_type_lib{"LoadRegTypeLib", Failing::hresult};
Function fn_register_type_lib{"RegisterTypeLib", Failing::hresult};
Function fn_register_for_user{"RegisterTypeLibForUser", Failing::hresult};
Function fn_unregister_type_lib{"UnRegisterTypeLib", Failing::hresult};
Function fn_unregister_for_user{"UnRegisterTypeLibForUser", Failing::hresult};
Function fn_library_get_type_info{"ITypeLib::GetTypeInfo", Failing::hresult};
Function fn_get_type_info_of_guid{"GetTypeInfoOfGuid", Failing::hresult};
Function fn_type_get_ids_of_names{"ITypeInfo::GetIDsOfNames", Failing::hresult};
Function fn_type_info_invoke{"ITypeInfo::Invoke", Failing::hresult};

class LibraryObject;
LibraryObject* HandOutLibrary(Machine& machine, std::shared_ptr<const TypeLibrary> library);

HRESULT GiveTexts(const std::wstring& name, const std::wstring& help, BSTR* name_place,
                  BSTR* help_place, DWORD* context, BSTR* file)
{
    if (name_place) *name_place = SysAllocString(name.c_str());
    if (help_place) *help_place = help.empty() ? nullptr : SysAllocString(help.c_str());
    if (context) *context = 0;
    if (file) *file = nullptr;
    return S_OK;
}

// ITypeInfo methods that no caller uses return E_NOTIMPL.
class TypeInfoObject final : public Counted, public ITypeInfo
{
public:
    explicit TypeInfoObject(TypeInLibrary type) : m_type(std::move(type)) {}
    std::string_view Kind() const override { return "type information"; }
    std::wstring Name() const override { return description().name; }
    const TypeInLibrary& type() const { return m_type; }

    HRESULT QueryInterface(REFIID id, void** object) override
    {
        return Answer<ITypeInfo>(id, IID_ITypeInfo, this, object);
    }
    ULONG AddRef() override { return Counted::AddRef(); }
    ULONG Release() override { return Counted::Release(); }

    HRESULT GetTypeAttr(TYPEATTR**) override { return E_NOTIMPL; }
    HRESULT GetTypeComp(ITypeComp**) override { return E_NOTIMPL; }
    HRESULT GetFuncDesc(UINT, FUNCDESC**) override { return E_NOTIMPL; }
    HRESULT GetVarDesc(UINT, VARDESC**) override { return E_NOTIMPL; }
    HRESULT GetRefTypeOfImplType(UINT, DWORD*) override { return E_NOTIMPL; }
    HRESULT GetImplTypeFlags(UINT, INT*) override { return E_NOTIMPL; }
    HRESULT GetDllEntry(MEMBERID, INVOKEKIND, BSTR*, BSTR*, WORD*) override { return E_NOTIMPL; }
    HRESULT GetRefTypeInfo(DWORD, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT AddressOfMember(MEMBERID, INVOKEKIND, PVOID*) override { return E_NOTIMPL; }
    HRESULT CreateInstance(IUnknown*, REFIID, PVOID*) override { return E_NOTIMPL; }
    HRESULT GetMops(MEMBERID, BSTR*) override { return E_NOTIMPL; }
    void ReleaseTypeAttr(TYPEATTR*) override {}
    void ReleaseFuncDesc(FUNCDESC*) override {}
    void ReleaseVarDesc(VARDESC*) override {}

    HRESULT GetNames(MEMBERID member, BSTR* names, UINT most, UINT* count) override
    {
        *count = 0;
        const Member* known = Find(member);
        if (!known) return TYPE_E_ELEMENTNOTFOUND;
        const auto give = [&](const std::wstring& name) {
            if (*count < most && !name.empty()) names[(*count)++] = SysAllocString(name.c_str());
        };
        give(known->name);
        for (const Parameter& parameter : known->parameters) give(parameter.name);
        return S_OK;
    }

    HRESULT GetIDsOfNames(LPOLESTR* names, UINT count, MEMBERID* ids) override
    {
        Operation call(fn_type_get_ids_of_names);
        if (const HRESULT refused = call.Refused(CheckUsable(call)); FAILED(refused))
            return refused;
        return FindNames(description(), names, count, ids);
    }

    HRESULT Invoke(PVOID instance, MEMBERID member, WORD flags, DISPPARAMS* arguments,
                   VARIANT* result, EXCEPINFO* exception, UINT* bad_argument) override
    {
        {
            Operation call(fn_type_info_invoke);
            if (const HRESULT refused = call.Refused(CheckUsable(call)); FAILED(refused))
                return refused;
        }
        const TypeInLibrary type = m_type;  // the call may release this object
        return InvokeSlot(type.description(), instance, member, flags, arguments, result, exception,
                          bad_argument);
    }

    HRESULT GetDocumentation(MEMBERID member, BSTR* name, BSTR* text, DWORD* context,
                             BSTR* file) override
    {
        if (member == DISPID_UNKNOWN) {
            return GiveTexts(description().name, description().help, name, text, context, file);
        }
        const Member* known = Find(member);
        if (!known) return TYPE_E_ELEMENTNOTFOUND;
        return GiveTexts(known->name, known->help, name, text, context, file);
    }

    HRESULT GetContainingTypeLib(ITypeLib** library, UINT* index) override;

private:
    const TypeDescription& description() const { return m_type.description(); }
    const Member* Find(MEMBERID member) const
    {
        const auto found = std::ranges::find(description().members, member, &Member::id);
        return found != description().members.end() ? &*found : nullptr;
    }

    const TypeInLibrary m_type;
};

class LibraryObject final : public Counted, public ITypeLib
{
public:
    explicit LibraryObject(std::shared_ptr<const TypeLibrary> library)
        : m_library(std::move(library))
    {
    }
    std::string_view Kind() const override { return "type library"; }
    std::wstring Name() const override { return m_library->name; }
    const TypeLibrary& library() const { return *m_library; }

    HRESULT QueryInterface(REFIID id, void** object) override
    {
        return Answer<ITypeLib>(id, IID_ITypeLib, this, object);
    }
    ULONG AddRef() override { return Counted::AddRef(); }
    ULONG Release() override { return Counted::Release(); }

    UINT GetTypeInfoCount() override { return static_cast<UINT>(m_library->types.size()); }

    HRESULT GetTypeInfo(UINT index, ITypeInfo** info) override
    {
        Operation call(fn_library_get_type_info);
        return GiveTypeInfo(call, index, info);
    }

    HRESULT GetTypeInfoOfGuid(REFGUID guid, ITypeInfo** info) override
    {
        Operation call(fn_get_type_info_of_guid);
        const auto found =
            std::ranges::find_if(m_library->types, [&](const auto& t) { return t.guid == guid; });
        return GiveTypeInfo(call, static_cast<std::size_t>(found - m_library->types.begin()), info);
    }

    HRESULT GetTypeInfoType(UINT, TYPEKIND*) override { return E_NOTIMPL; }
    HRESULT GetLibAttr(TLIBATTR**) override { return E_NOTIMPL; }
    HRESULT GetTypeComp(ITypeComp**) override { return E_NOTIMPL; }
    HRESULT IsName(LPOLESTR, ULONG, BOOL*) override { return E_NOTIMPL; }
    HRESULT FindName(LPOLESTR, ULONG, ITypeInfo**, MEMBERID*, USHORT*) override
    {
        return E_NOTIMPL;
    }
    void ReleaseTLibAttr(TLIBATTR*) override {}

    HRESULT GetDocumentation(INT index, BSTR* name, BSTR* text, DWORD* context, BSTR* file) override
    {
        if (index < 0)
            return GiveTexts(m_library->name, m_library->help, name, text, context, file);
        if (static_cast<std::size_t>(index) >= m_library->types.size()) {
            return TYPE_E_ELEMENTNOTFOUND;
        }
        const TypeDescription& type = m_library->types[static_cast<std::size_t>(index)];
        return GiveTexts(type.name, type.help, name, text, context, file);
    }

private:
    HRESULT GiveTypeInfo(Operation& call, std::size_t index, ITypeInfo** info)
    {
        *info = nullptr;
        if (const HRESULT refused = call.Refused(CheckUsable(call)); FAILED(refused))
            return refused;
        if (index >= m_library->types.size()) return TYPE_E_ELEMENTNOTFOUND;
        *info = HandOutTypeInfo(call.machine, {m_library, index});
        return S_OK;
    }

    const std::shared_ptr<const TypeLibrary> m_library;
};

HRESULT TypeInfoObject::GetContainingTypeLib(ITypeLib** library, UINT* index)
{
    Operation call(fn_library_get_type_info);
    *library = nullptr;
    if (const HRESULT refused = call.Refused(CheckUsable(call)); FAILED(refused)) return refused;
    if (index) *index = static_cast<UINT>(m_type.index);
    *library = HandOutLibrary(call.machine, m_type.library);
    return S_OK;
}

LibraryObject* HandOutLibrary(Machine& machine, std::shared_ptr<const TypeLibrary> library)
{
    return HandOut<LibraryObject>(machine, std::move(library));
}

HRESULT Load(Call& call, const std::wstring& path, ITypeLib** library)
{
    const auto found = call.machine.com.type_libraries.Find(path);
    if (!found || !call.machine.disk.Read(path)) return TYPE_E_CANTLOADLIBRARY;
    *library = HandOutLibrary(call.machine, found);
    return S_OK;
}

// --- Registration ---

std::wstring Braced(const GUID& guid) { return L"{" + FormatGuid(guid) + L"}"; }

std::wstring HexNumber(DWORD number)
{
    wchar_t text[12];
    std::swprintf(text, std::size(text), L"%x", number);
    return text;
}

std::wstring Version(WORD major, WORD minor) { return HexNumber(major) + L"." + HexNumber(minor); }

constexpr const wchar_t* kMachineClasses = LR"(HKLM\Software\Classes\)";
constexpr const wchar_t* kUserClasses = LR"(HKCU\Software\Classes\)";

// Whether calls of the interface can be marshaled by its description in the library.
bool Crosses(const TypeDescription& type)
{
    return type.kind == TypeDescription::Kind::dispatch || type.Has(L"dual") ||
           type.Has(L"oleautomation");
}

HRESULT Register(Function& function, const wchar_t* classes, ITypeLib* library, const wchar_t* path,
                 const wchar_t* help_folder)
{
    Call call(function);
    if (call.Fails()) return static_cast<HRESULT>(call.error());
    const auto* object = dynamic_cast<LibraryObject*>(library);
    if (!object || !path) return E_INVALIDARG;
    const TypeLibrary& described = object->library();
    Registry& registry = call.machine.registry;
    const std::wstring version = Version(described.major, described.minor);
    const std::wstring key = classes + (LR"(TypeLib\)" + Braced(described.guid)) + L"\\" + version;
    registry.SetString(key, L"", described.help);
    registry.SetString(key + L"\\" + HexNumber(described.locale) + LR"(\win64)", L"", path);
    registry.SetString(key + LR"(\FLAGS)", L"", L"0");
    registry.SetString(key + LR"(\HELPDIR)", L"", help_folder ? help_folder : L"");
    for (const TypeDescription& type : described.types) {
        if (!Crosses(type)) continue;
        const std::wstring interface = classes + (LR"(Interface\)" + Braced(type.guid));
        const bool dispatch = type.kind == TypeDescription::Kind::dispatch;
        registry.SetString(interface, L"", type.name);
        registry.SetString(interface + LR"(\ProxyStubClsid32)", L"",
                           dispatch ? kByDispatch : kByTypeLibrary);
        registry.SetString(interface + LR"(\TypeLib)", L"", Braced(described.guid));
        registry.SetString(interface + LR"(\TypeLib)", L"Version", version);
    }
    return S_OK;
}

// The file of a registered version of a library; empty when none is registered for the locale.
std::wstring RegisteredPath(Registry& registry, const std::wstring& version_key, LCID locale)
{
    // The locale asked for, its primary language, or the neutral one.
    for (const LCID known : {locale, locale & 0x3FF, LCID{0}}) {
        const auto path =
            registry.GetString(version_key + L"\\" + HexNumber(known) + LR"(\win64)", L"");
        if (path) return *path;
    }
    return {};
}

HRESULT Unregister(Function& function, const wchar_t* classes, REFGUID guid, WORD major, WORD minor,
                   LCID locale)
{
    Call call(function);
    if (call.Fails()) return static_cast<HRESULT>(call.error());
    Registry& registry = call.machine.registry;
    const std::wstring library = classes + (LR"(TypeLib\)" + Braced(guid));
    const std::wstring key = library + L"\\" + Version(major, minor);
    const std::wstring path = RegisteredPath(registry, key, locale);
    if (path.empty()) return TYPE_E_REGISTRYACCESS;
    registry.DeleteKey(key);
    if (registry.FindKey(Registry::Parse(library))->keys.empty()) registry.DeleteKey(library);
    const auto described = call.machine.com.type_libraries.Find(path);
    if (!described) return S_OK;
    for (const TypeDescription& type : described->types) {
        if (Crosses(type)) registry.DeleteKey(classes + (LR"(Interface\)" + Braced(type.guid)));
    }
    return S_OK;
}

}  // namespace

namespace virtual_pc {

ITypeInfo* HandOutTypeInfo(Machine& machine, TypeInLibrary type)
{
    return HandOut<TypeInfoObject>(machine, std::move(type));
}

TypeInLibrary TypeOf(ITypeInfo* info) { return dynamic_cast<TypeInfoObject&>(*info).type(); }

}  // namespace virtual_pc

extern "C" {

HRESULT WINAPI LoadTypeLib(LPCOLESTR file, ITypeLib** library)
{
    Call call(fn_load_type_lib);
    if (!file || !library) return E_INVALIDARG;
    *library = nullptr;
    if (call.Fails()) return static_cast<HRESULT>(call.error());
    return Load(call, file, library);
}

HRESULT WINAPI LoadRegTypeLib(REFGUID guid, WORD major, WORD minor, LCID locale, ITypeLib** library)
{
    Call call(fn_load_reg_type_lib);
    *library = nullptr;
    if (call.Fails()) return static_cast<HRESULT>(call.error());
    const std::wstring key = LR"(HKCR\TypeLib\)" + Braced(guid);
    const auto node = call.machine.registry.FindKey(Registry::Parse(key));
    if (!node) return TYPE_E_LIBNOTREGISTERED;
    // The highest registered minor version that is at least the requested one.
    std::wstring best;
    unsigned long latest = minor;
    for (const auto& [version, child] : node->keys) {
        wchar_t* end = nullptr;
        const unsigned long found_major = std::wcstoul(version.c_str(), &end, 16);
        if (found_major != major || *end != L'.') continue;
        const unsigned long found_minor = std::wcstoul(end + 1, nullptr, 16);
        if (found_minor < latest) continue;
        latest = found_minor;
        best = version;
    }
    if (best.empty()) return TYPE_E_LIBNOTREGISTERED;
    const std::wstring path = RegisteredPath(call.machine.registry, key + L"\\" + best, locale);
    return path.empty() ? TYPE_E_LIBNOTREGISTERED : Load(call, path, library);
}

HRESULT WINAPI RegisterTypeLib(ITypeLib* library, OLECHAR* path, OLECHAR* helpFolder)
{
    return Register(fn_register_type_lib, kMachineClasses, library, path, helpFolder);
}

HRESULT WINAPI RegisterTypeLibForUser(ITypeLib* library, OLECHAR* path, OLECHAR* helpFolder)
{
    return Register(fn_register_for_user, kUserClasses, library, path, helpFolder);
}

HRESULT WINAPI UnRegisterTypeLib(REFGUID guid, WORD major, WORD minor, LCID locale, SYSKIND system)
{
    if (system != SYS_WIN64) return TYPE_E_REGISTRYACCESS;
    return Unregister(fn_unregister_type_lib, kMachineClasses, guid, major, minor, locale);
}

HRESULT WINAPI UnRegisterTypeLibForUser(REFGUID guid, WORD major, WORD minor, LCID locale,
                                        SYSKIND system)
{
    if (system != SYS_WIN64) return TYPE_E_REGISTRYACCESS;
    return Unregister(fn_unregister_for_user, kUserClasses, guid, major, minor, locale);
}
}
