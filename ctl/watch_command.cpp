#include "ctl/watch_command.h"

#include "ctl/published_state.h"
#include "ctl/words.h"
#include "platform/kernel.h"
#include "platform/owned.h"
#include "platform/session.h"
#include "publish/published_key.h"

namespace {

// What is waited for: a change of the published state, or the end of the process that publishes it,
// which a killed one does not tell.
class Watch
{
public:
    // Before the state is read, so that no change falls between.
    LSTATUS Begin()
    {
        m_key.Reset();
        // The key is there from the service's first start on. Before that its parent is watched.
        const std::wstring path = std::wstring(kHolvKey) + L"\\" + kPublishedKey;
        LSTATUS error =
            RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_NOTIFY, m_key.Receive());
        if (error == ERROR_FILE_NOT_FOUND) {
            error = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kHolvKey, 0, KEY_NOTIFY, m_key.Receive());
        }
        if (error) return error;
        ResetEvent(m_changed.Get());
        return RegNotifyChangeKeyValue(m_key.Get(), TRUE,
                                       REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_LAST_SET,
                                       m_changed.Get(), TRUE);
    }

    bool Await(const PublishedState& state)
    {
        const auto id = static_cast<DWORD>(state.record[L"process"][L"id"].Number());
        // A standard user may not wait for the process, and sees its end at the next start.
        const OwnedHandle process(
            state.service == Published::running ? OpenProcess(SYNCHRONIZE, FALSE, id) : nullptr);
        const HANDLE all[] = {m_changed.Get(), process.Get()};
        return WaitForMultipleObjects(process ? 2 : 1, all, FALSE, INFINITE) != WAIT_FAILED;
    }

private:
    const OwnedHandle m_changed{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    OwnedKey m_key;
};

std::wstring LineOf(const PublishedState& state)
{
    const JsonValue& record = state.record;
    const bool runs = state.service == Published::running;
    const auto ahead = static_cast<int>(record[L"minutes_ahead"].Number());
    const UtcTime when = runs ? record[L"utc"].Time().value_or(0) : UtcNow();
    return LocalText(when, runs ? ahead : MinutesAheadOfUtc()) + L"  " +
           (runs ? record[L"state"].Text() + L"  " : std::wstring()) + WhySentence(state) + L"\n";
}

// What a line tells, without its time.
std::wstring NewsOf(const PublishedState& state)
{
    return state.record[L"state"].Text() + L" " + PublishedName(state.service) + L" " +
           WhySentence(state);
}

}  // namespace

int RunWatch(const CommandArguments& arguments)
{
    const long most = arguments.empty() ? 0 : NumberIn(arguments[0]);
    if (arguments.size() > 1 || most < 0) return kUsage;
    Watch watch;
    std::wstring told;
    for (long changes = -1; most == 0 || changes < most;) {
        if (const LSTATUS error = watch.Begin()) {
            if (error == ERROR_ACCESS_DENIED)
                return EndWith(kDenied, L"The system refuses access.");
            return EndWith(kNotInstalled, L"Nothing is published on this PC.");
        }
        const PublishedState state = ReadPublishedState();
        if (const std::wstring news = NewsOf(state); news != told) {
            Print(LineOf(state));
            told = news;
            ++changes;
            if (most > 0 && changes == most) break;
        }
        if (!watch.Await(state)) return EndWith(kFailed, L"The wait failed.");
    }
    return kDone;
}
