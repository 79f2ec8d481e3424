#include "state/activity.h"

#include <atomic>
#include <utility>

#include "platform/kernel.h"
#include "state/never_sleep_state.h"

namespace {

CriticalSection g_activity_lock;
// Raised under the lock, so that it is not raised while a Standstill lasts.
std::atomic<int> g_open = 0;
// Under the lock.
Changes g_changes;
HANDLE g_changed = nullptr;
bool g_awaited = false;

std::atomic<void (*)(Activity::Kind kind)> g_after = nullptr;

}  // namespace

Activity::Found Activity::Now()
{
    return {CNeverSleepState::m_bSeenDndStart, CNeverSleepState::m_bBatteryThresholdCrossed};
}

Activity::Activity(Kind kind) : m_kind(kind), m_before(Now())
{
    const ScopedLock lock(g_activity_lock);
    ++g_open;
}

Activity::~Activity()
{
    const bool is_fact = m_kind == Kind::fact || !(Now() == m_before);
    CallAfterActivity(m_kind);
    if (is_fact || m_kind != Kind::pass) NoteChange(is_fact);
    --g_open;
}

void Activity::NoteChange(bool is_fact)
{
    const ScopedLock lock(g_activity_lock);
    ++g_changes.all;
    if (is_fact) ++g_changes.facts;
    g_changes.last_ms = GetTickCount64();
    if (g_changed && std::exchange(g_awaited, false)) SetEvent(g_changed);
}

void ObserveChanges(HANDLE changed)
{
    const ScopedLock lock(g_activity_lock);
    g_changed = changed;
    g_awaited = false;
}

void CallAfterActivities(void (*changed)(Activity::Kind kind)) { g_after = changed; }

void CallAfterActivity(Activity::Kind kind)
{
    if (auto* const changed = g_after.load()) changed(kind);
}

Standstill::Standstill() : m_lock(g_activity_lock) {}

bool Standstill::Complete() const { return g_open == 0; }

Changes Standstill::Seen() const { return g_changes; }

void Standstill::AwaitChange() { g_awaited = true; }
