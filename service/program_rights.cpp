#include "service/program_rights.h"

#include <string>

#include "log/log.h"
#include "log/own_place.h"
#include "platform/module.h"

void WarnOfWritableProgram()
{
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    const std::wstring place = WritableByOthers(path);
    if (place.empty()) return;
    Log(4, L"WarnOfWritableProgram", L"Users can write to %s, and so become the local system",
        place.c_str());
}
