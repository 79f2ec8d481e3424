#include "publish/publisher.h"

#include <atomic>
#include <cstdlib>

#include "history/history_writer.h"
#include "json/json_value.h"
#include "log/log.h"
#include "platform/kernel.h"
#include "platform/owned.h"
#include "platform/session.h"
#include "power/machine_power.h"
#include "publish/published_key.h"
#include "publish/record.h"
#include "state/activity.h"
#include "state/state_trail.h"

namespace {

constexpr const wchar_t* kFunction = L"Publisher";

// Begins and ends with the service. Used by one thread at a time: that of ServiceMain before and
// after the others, and between by the one for which g_wanted was 0.
struct Publisher
{
    OwnedKey key;
    RecordHead head;
    Camera camera;
    std::optional<Snapshot> published;
    JsonObject facts;  // of `published`
    NextTimers timers;
    HistoryWriter history;
    std::uint64_t told = 0;  // changes of state that the history has
    bool failure_logged = false;

    void Open();
    // What has happened since the last time. `event` is start or stop for the first and the last.
    void Publish(RecordEvent event);
    void Close();

private:
    LSTATUS OpenKey();
    void Stamp();
    // Whether the clock was set since the last record.
    bool IsClockSet() const;
    // The changes of state that came before the last one.
    void WriteEarlier(const Snapshot& now, std::optional<int> charge);
    void Report(LSTATUS error);
};

Publisher g_publisher;
// How many changes wait to be published.
std::atomic<unsigned> g_wanted = 0;
// Whether something has come from outside, which may be that the clock was set.
std::atomic<bool> g_look_at_clock = false;

LSTATUS WriteText(HKEY key, const wchar_t* name, const std::wstring& text)
{
    return RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                          static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

std::wstring ReadText(HKEY key, const wchar_t* name)
{
    DWORD size = 0;
    if (RegGetValueW(key, nullptr, name, RRF_RT_REG_SZ, nullptr, nullptr, &size)) return {};
    std::wstring text(size / sizeof(wchar_t) + 1, L'\0');
    size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
    if (RegGetValueW(key, nullptr, name, RRF_RT_REG_SZ, nullptr, text.data(), &size)) return {};
    return text.substr(0, text.find(L'\0'));
}

// The parent is made first, by a call of its own: with the volatile key it would be volatile, too,
// and refuse the settings.
LSTATUS Publisher::OpenKey()
{
    OwnedKey parent;
    if (const LSTATUS error = RegCreateKeyW(HKEY_LOCAL_MACHINE, kHolvKey, parent.Receive())) {
        return error;
    }
    return RegCreateKeyExW(parent.Get(), kPublishedKey, 0, nullptr, REG_OPTION_VOLATILE,
                           KEY_QUERY_VALUE | KEY_SET_VALUE, nullptr, key.Receive(), nullptr);
}

void Publisher::Open()
{
    FILETIME started{}, unused{};
    GetProcessTimes(GetCurrentProcess(), &started, &unused, &unused, &unused);
    head.process = ProcessRecord(GetCurrentProcessId(), ToUtc(started));
    LSTATUS error = OpenKey();
    if (!error) {
        head.boot = ReadText(key.Get(), kBootValue);
        const auto last = JsonValue::Read(ReadText(key.Get(), kPublishedValue));
        if (last) head.number = static_cast<std::uint64_t>((*last)[L"number"].Number());
    }
    if (head.boot.empty()) {
        head.boot = FormatUtc(UtcNow());
        if (!error) error = WriteText(key.Get(), kBootValue, head.boot);
    }
    Report(error);
}

void Publisher::Stamp()
{
    head.utc = UtcNow();
    head.tick = GetTickCount64();
    head.minutes_ahead = MinutesAheadOfUtc();
    ++head.number;
}

bool Publisher::IsClockSet() const
{
    constexpr std::int64_t kMost = 500 * kUnitsPerMs;
    const auto passed = static_cast<std::int64_t>((GetTickCount64() - head.tick) * kUnitsPerMs);
    return std::abs(static_cast<std::int64_t>(UtcNow() - head.utc) - passed) > kMost;
}

// An operation may have changed the state more than once: each change gets its line.
void Publisher::WriteEarlier(const Snapshot& now, std::optional<int> charge)
{
    const std::uint64_t noted = StatesNoted();
    for (const StateNote& note : StateNotesFrom(told)) {
        if (note.at == now.since && note.state == now.state) continue;
        Snapshot then = now;
        then.state = note.state;
        then.since = note.at;
        then.reason = ReasonOf(note.state, KnownUser(), now.feature_on);
        history.Append(head.utc, HistoryRecord(CommonRecord(head, then, facts), then,
                                               RecordEvent::change, charge));
        ++head.number;
    }
    told = noted;
}

void Publisher::Publish(RecordEvent event)
{
    Snapshot now = camera.Take();
    const NextTimers next = TakeNextTimers();
    const bool news = !published || now != *published || event != RecordEvent::change ||
                      (g_look_at_clock.exchange(false) && IsClockSet());
    if (!news && next == timers) return;
    Stamp();
    const std::optional<int> charge = KnownCharge();
    if (news) {
        facts = FactsOf(now);
        WriteEarlier(now, charge);
    }
    JsonObject common = CommonRecord(head, now, facts);
    if (news) history.Append(head.utc, HistoryRecord(common, now, event, charge));
    if (key) {
        Report(WriteText(
            key.Get(), kPublishedValue,
            PublishedRecord(std::move(common), head, now, next, event != RecordEvent::stop)));
    }
    published = std::move(now);
    timers = next;
}

void Publisher::Close()
{
    key.Reset();
    history.Close();
}

void Publisher::Report(LSTATUS error)
{
    if (error && !failure_logged) {
        Log(4, kFunction, L"Unable to publish the state, GLE=%d", error);
    }
    failure_logged = error != ERROR_SUCCESS;
}

void PublishAfter(Activity::Kind kind)
{
    if (kind == Activity::Kind::fact) g_look_at_clock = true;
    if (g_wanted.fetch_add(1) > 0) return;
    unsigned taken = 0;
    do {
        taken = g_wanted;
        g_publisher.Publish(RecordEvent::change);
    } while (!g_wanted.compare_exchange_strong(taken, 0));
}

}  // namespace

void StartPublishing()
{
    g_publisher.Open();
    g_publisher.Publish(RecordEvent::start);
    CallAfterActivities(PublishAfter);
}

void EndPublishing()
{
    CallAfterActivities(nullptr);
    // A thread may still publish; then it has the last word. Otherwise nothing is published later,
    // as this change is never taken off.
    if (g_wanted.fetch_add(1) > 0) return;
    g_publisher.Publish(RecordEvent::stop);
    g_publisher.Close();
}
