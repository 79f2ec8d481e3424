#include "state/activity.h"

#include <atomic>

#include "platform/kernel.h"
#include "state/never_sleep_state.h"

namespace {

CriticalSection g_activity_lock;
// Under the lock.
int g_open = 0;
ChangeCounts g_changes;
HANDLE g_changed = nullptr;

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
    const ScopedLock lock(g_activity_lock);
    --g_open;
    if (!is_fact && m_kind == Kind::pass) return;
    ++g_changes.all;
    if (is_fact) ++g_changes.facts;
    if (g_changed) SetEvent(g_changed);
}

void ObserveChanges(HANDLE changed)
{
    const ScopedLock lock(g_activity_lock);
    g_changed = changed;
}

void CallAfterActivities(void (*changed)(Activity::Kind kind)) { g_after = changed; }

void CallAfterActivity(Activity::Kind kind)
{
    if (auto* const changed = g_after.load()) changed(kind);
}

Standstill::Standstill() : m_lock(g_activity_lock) {}

bool Standstill::Complete() const { return g_open == 0; }

ChangeCounts Standstill::Changes() const { return g_changes; }
