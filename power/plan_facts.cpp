// What the manager knows of the plans.

#include <utility>

#include "power/plan_settings.h"

namespace {

// With a lock of its own, held for a copy only: m_lock is held while plans are written.
Guarded<CPowerPolicyManager::KnownPlans> g_known;

}  // namespace

std::atomic<BOOL> CPowerPolicyManager::m_bActivationFailed = FALSE;

CPowerPolicyManager::Plans CPowerPolicyManager::GetPlans() const
{
    const ScopedLock lock(m_lock);
    return {m_bUserOptionsSaved != FALSE, m_UserScheme, m_HolvConfig.guidScheme,
            m_bSleepTimeoutOverridden != FALSE, m_bActivationFailed != FALSE};
}

bool CPowerPolicyManager::KnownPlans::operator==(const KnownPlans& other) const
{
    return IsEqualGUID(user, other.user) && IsEqualGUID(active, other.active);
}

void CPowerPolicyManager::NoteUserPlan(const GUID& scheme)
{
    g_known.Change([&](KnownPlans& plans) {
        const KnownPlans before = std::exchange(plans, {scheme, scheme});
        return !(plans == before);
    });
}

void CPowerPolicyManager::NoteActivePlan(const GUID& scheme)
{
    g_known.Change([&](KnownPlans& plans) {
        const bool other = !IsEqualGUID(plans.active, scheme);
        plans.active = scheme;
        return other;
    });
}

std::optional<GUID> CPowerPolicyManager::LastKnownActivePlan()
{
    Guarded<KnownPlans>::Copy known;
    g_known.Refresh(known);
    if (IsEqualGUID(known.value.active, GUID{})) return {};
    return known.value.active;
}

void CPowerPolicyManager::RefreshKnownPlans(Guarded<KnownPlans>::Copy& copy)
{
    g_known.Refresh(copy);
}

std::optional<GUID> CPowerPolicyManager::GetActiveScheme()
{
    OwnedScheme active;
    if (PowerGetActiveScheme(nullptr, active.Receive()) != ERROR_SUCCESS || !active) return {};
    return *active.Get();
}
