#include "api/type_library.h"

#include <string>

#include "api/agent_api.h"
#include "platform/module.h"
#include "platform/owned.h"

HRESULT RegisterAgentTypeLibrary(bool perUser)
{
    wchar_t path[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    if (length == 0 || length == MAX_PATH) return E_FAIL;
    OwnedInterface<ITypeLib> library;
    const HRESULT loaded = LoadTypeLib(path, library.Receive());
    if (FAILED(loaded)) return loaded;
    std::wstring folder(path);
    folder.resize(folder.rfind(L'\\') + 1);
    return perUser ? RegisterTypeLibForUser(library.Get(), path, folder.data())
                   : RegisterTypeLib(library.Get(), path, folder.data());
}

HRESULT UnregisterAgentTypeLibrary(bool perUser)
{
    return (perUser ? UnRegisterTypeLibForUser : UnRegisterTypeLib)(
        LIBID_HOLVAgentLib, kHOLVAgentLibMajor, kHOLVAgentLibMinor, kHOLVAgentLibLocale, SYS_WIN64);
}
