// The names of events, timers and mutexes.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/virtual/core/call.h"
#include "platform/virtual/core/process.h"

namespace virtual_pc {

// The full name of a kernel object: with the calling process's session before it, unless it begins
// with "Global\". Empty for an object without a name; nothing, with the last error set, for a name
// with another backslash.
inline std::optional<std::wstring> NameInSession(Call& call, LPCWSTR given)
{
    std::wstring_view name = given ? given : L"";
    if (name.empty()) return std::wstring();
    std::wstring place = LR"(Global\)";
    if (name.starts_with(place)) {
        name.remove_prefix(place.size());
    } else {
        constexpr std::wstring_view kLocal = LR"(Local\)";
        if (name.starts_with(kLocal)) name.remove_prefix(kLocal.size());
        const Process* process = call.thread.process;
        const DWORD session = process && process->launch ? process->launch->session : 0;
        place = LR"(Sessions\)" + std::to_wstring(session) + L"\\";
    }
    if (name.find(L'\\') == name.npos) return place + std::wstring(name);
    call.Fail(ERROR_PATH_NOT_FOUND);
    return std::nullopt;
}

// Makes an object with `make`, from its full name, or opens the one that has the name. Names of all
// kinds of objects are one set. Null with the last error set where another kind has the name.
template <class T, class Make>
HANDLE CreateOrOpen(Call& call, LPCWSTR name, Make make)
{
    const std::optional<std::wstring> full = NameInSession(call, name);
    if (!full) return nullptr;
    const auto known = full->empty() ? nullptr : call.machine.handles.FindNamed<Object>(*full);
    const auto same = std::dynamic_pointer_cast<T>(known);
    if (known && !same) {
        call.Fail(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    call.thread.last_error = same ? ERROR_ALREADY_EXISTS : NO_ERROR;
    return call.Open(same ? same : std::shared_ptr<T>(make(*full)));
}

}  // namespace virtual_pc
