#include "ctl/published_state.h"

#include <iterator>

#include "ctl/service_process.h"
#include "platform/owned.h"
#include "publish/published_key.h"

namespace {

std::wstring ReadValue()
{
    const std::wstring path = std::wstring(kHolvKey) + L"\\" + kPublishedKey;
    std::wstring text;
    // The value may grow between the question for its size and its reading.
    for (DWORD size = 4096; text.size() * sizeof(wchar_t) < size;) {
        text.assign(size / sizeof(wchar_t) + 1, L'\0');
        size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
        const LSTATUS error = RegGetValueW(HKEY_LOCAL_MACHINE, path.c_str(), kPublishedValue,
                                           RRF_RT_REG_SZ, nullptr, text.data(), &size);
        if (error == ERROR_SUCCESS) return text.substr(0, text.find(L'\0'));
        if (error != ERROR_MORE_DATA) break;
    }
    return {};
}

// The service has not published anything.
Published WithoutRecord()
{
    switch (AskServiceManager()) {
        case ServiceRuns::no:
            return Published::not_running;
        case ServiceRuns::not_installed:
            return Published::not_installed;
        default:
            return Published::nothing;
    }
}

}  // namespace

PublishedState ReadPublishedState()
{
    std::optional<JsonValue> record = JsonValue::Read(ReadValue());
    if (!record) return {WithoutRecord(), {}};
    const JsonValue& process = (*record)[L"process"];
    Published service = Published::running;
    if (!(*record)[L"running"].Flag()) {
        service = Published::stopped;
    } else if (!IsProcessAlive(static_cast<DWORD>(process[L"id"].Number()),
                               process[L"started"].Time().value_or(0))) {
        service = Published::killed;
    }
    // What a removed service has published stays until the PC starts again.
    if (service != Published::running && AskServiceManager() == ServiceRuns::not_installed) {
        return {Published::not_installed, {}};
    }
    return {service, std::move(*record)};
}

const wchar_t* PublishedName(Published service)
{
    constexpr const wchar_t* kNames[] = {L"running", L"stopped",     L"killed",
                                         L"nothing", L"not_running", L"not_installed"};
    static_assert(std::size(kNames) == static_cast<std::size_t>(Published::not_installed) + 1);
    return kNames[static_cast<int>(service)];
}
