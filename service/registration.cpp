#include "service/registration.h"

#include <cwchar>
#include <span>
#include <string>

#include "api/type_library.h"
#include "platform/module.h"
#include "platform/owned.h"
#include "service/identity.h"
#include "service/installation.h"
#include "service/module.h"

namespace {

#define APPID L"{7A31C5E2-90D4-4B6E-A1F3-2C8D5E9B0A47}"
#define CLASS_ID L"{3E9F1B20-6C4A-4D8E-B7F2-95A0C1D3E864}"
#define LIBRARY_ID L"{C4D72A19-3B8E-4F05-9A61-E2B7D048F1C3}"
#define PROGRAM_ID L"HOLVAgentLib.HOLVAgentLib"
#define CLASS_NAME L"HOLVAgentApi Class"

constexpr const wchar_t* kDefault = nullptr;         // the name of a key's default value
constexpr const wchar_t* kNoValue = nullptr;         // the data of a key without values
constexpr const wchar_t* kExecutable = L"%MODULE%";  // as data: the executable's path

struct Row
{
    const wchar_t* key;
    const wchar_t* name;
    const wchar_t* data;
};

// Registry changes below HKEY_CLASSES_ROOT, or below the user's Software\Classes.
struct Script
{
    std::span<const wchar_t* const> renewed;  // deleted with subkeys before the rows are written
    std::span<const Row> rows;
    std::span<const wchar_t* const> removed;  // deleted with subkeys by an unregistration
};

constexpr const wchar_t* kAppIdKey = L"AppID\\" APPID;

constexpr Row kAppIdRows[] = {
    {kAppIdKey, kDefault, kServiceName},
    {LR"(AppID\HOLVService.EXE)", L"AppID", APPID},
};
constexpr const wchar_t* kAppIdRemoved[] = {kAppIdKey, LR"(AppID\HOLVService.EXE)"};
constexpr Script kAppIdScript{{}, kAppIdRows, kAppIdRemoved};

constexpr const wchar_t* kClassKey = L"CLSID\\" CLASS_ID;

constexpr Row kClassRows[] = {
    {PROGRAM_ID L".1", kDefault, CLASS_NAME},
    {PROGRAM_ID L".1\\CLSID", kDefault, CLASS_ID},
    {PROGRAM_ID, kDefault, CLASS_NAME},
    {PROGRAM_ID L"\\CLSID", kDefault, CLASS_ID},
    {PROGRAM_ID L"\\CurVer", kDefault, PROGRAM_ID L".1"},
    {kClassKey, kDefault, CLASS_NAME},
    {kClassKey, L"AppID", APPID},
    {L"CLSID\\" CLASS_ID L"\\ProgID", kDefault, PROGRAM_ID L".1"},
    {L"CLSID\\" CLASS_ID L"\\VersionIndependentProgID", kDefault, PROGRAM_ID},
    {L"CLSID\\" CLASS_ID L"\\Programmable", kDefault, kNoValue},
    {L"CLSID\\" CLASS_ID L"\\LocalServer32", kDefault, kExecutable},
    {L"CLSID\\" CLASS_ID L"\\TypeLib", kDefault, LIBRARY_ID},
};
constexpr const wchar_t* kClassRenewed[] = {kClassKey};
constexpr const wchar_t* kClassRemoved[] = {PROGRAM_ID L".1", PROGRAM_ID, kClassKey};
constexpr Script kClassScript{kClassRenewed, kClassRows, kClassRemoved};

HRESULT ResultOf(LSTATUS status) { return HRESULT_FROM_WIN32(static_cast<DWORD>(status)); }

HKEY RootOf(RegisterFor whom)
{
    return whom == RegisterFor::user ? HKEY_CURRENT_USER : HKEY_CLASSES_ROOT;
}

std::wstring PathOf(RegisterFor whom, const wchar_t* key)
{
    return (whom == RegisterFor::user ? LR"(Software\Classes\)" : L"") + std::wstring(key);
}

LSTATUS WriteText(const OwnedKey& key, const wchar_t* name, const wchar_t* text)
{
    return RegSetValueExW(key.Get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                          static_cast<DWORD>((std::wcslen(text) + 1) * sizeof(wchar_t)));
}

HRESULT Delete(RegisterFor whom, std::span<const wchar_t* const> keys)
{
    for (const wchar_t* key : keys) {
        const LSTATUS status = RegDeleteTreeW(RootOf(whom), PathOf(whom, key).c_str());
        if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND) return ResultOf(status);
    }
    return S_OK;
}

HRESULT Write(RegisterFor whom, const Script& script)
{
    wchar_t executable[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, executable, MAX_PATH);
    if (length == 0 || length == MAX_PATH) return E_FAIL;
    if (const HRESULT hr = Delete(whom, script.renewed); FAILED(hr)) return hr;
    for (const Row& row : script.rows) {
        OwnedKey key;
        LSTATUS status = RegCreateKeyW(RootOf(whom), PathOf(whom, row.key).c_str(), key.Receive());
        if (status == ERROR_SUCCESS && row.data != kNoValue) {
            status = WriteText(key, row.name, row.data == kExecutable ? executable : row.data);
        }
        if (status != ERROR_SUCCESS) return ResultOf(status);
    }
    return S_OK;
}

// Opens HKCR\AppID\{...}, or creates it with `make`; its LocalService value says whether this
// program is a service. Under HKCR also for a user's own registration, because startup reads it
// there.
HRESULT OpenAppId(OwnedKey& key, bool make)
{
    OwnedKey all;
    LSTATUS status = RegOpenKeyExW(HKEY_CLASSES_ROOT, L"AppID", 0, KEY_WRITE, all.Receive());
    if (status != ERROR_SUCCESS) return ResultOf(status);
    status = make ? RegCreateKeyW(all.Get(), APPID, key.Receive())
                  : RegOpenKeyExW(all.Get(), APPID, 0, KEY_READ | KEY_WRITE, key.Receive());
    return status == ERROR_SUCCESS ? S_OK : ResultOf(status);
}

}  // namespace

HRESULT RegisterAppId(bool service, RegisterFor whom)
{
    if (!Uninstall()) return E_FAIL;
    if (const HRESULT hr = Write(whom, kAppIdScript); FAILED(hr)) return hr;
    OwnedKey key;
    if (const HRESULT hr = OpenAppId(key, true); FAILED(hr)) return hr;
    RegDeleteValueW(key.Get(), kLocalService);
    if (!service) return S_OK;
    const LSTATUS status = WriteText(key, kLocalService, Module().service_name());
    if (status != ERROR_SUCCESS) return ResultOf(status);
    return InstallService() ? S_OK : E_FAIL;
}

HRESULT UnregisterAppId(RegisterFor whom)
{
    if (!Uninstall()) return E_FAIL;
    {
        OwnedKey key;
        if (const HRESULT hr = OpenAppId(key, false); FAILED(hr)) return hr;
        RegDeleteValueW(key.Get(), kLocalService);
    }
    return Delete(whom, kAppIdScript.removed);
}

HRESULT RegisterServer(RegisterFor whom)
{
    if (const HRESULT hr = Write(whom, kClassScript); FAILED(hr)) return hr;
    return RegisterAgentTypeLibrary(whom == RegisterFor::user);
}

HRESULT UnregisterServer(RegisterFor whom)
{
    if (const HRESULT hr = Delete(whom, kClassScript.removed); FAILED(hr)) return hr;
    return UnregisterAgentTypeLibrary(whom == RegisterFor::user);
}
