// What the manager knows of the plans.

#include "power/plan_settings.h"

namespace {

// A lock of its own, held for a copy only: m_lock is held while plans are written.
CriticalSection g_known_lock;
CPowerPolicyManager::KnownPlans g_known{};

}  // namespace

std::atomic<BOOL> CPowerPolicyManager::m_bActivationFailed = FALSE;

CPowerPolicyManager::Plans CPowerPolicyManager::GetPlans() const
{
    const ScopedLock lock(m_lock);
    return {m_bUserOptionsSaved != FALSE, m_UserScheme, m_HolvConfig.guidScheme,
            m_bSleepTimeoutOverridden != FALSE, m_bActivationFailed != FALSE};
}

void CPowerPolicyManager::NoteUserPlan(const GUID& scheme)
{
    const ScopedLock lock(g_known_lock);
    g_known.user = g_known.active = scheme;
}

void CPowerPolicyManager::NoteActivePlan(const GUID& scheme)
{
    const ScopedLock lock(g_known_lock);
    g_known.active = scheme;
}

CPowerPolicyManager::KnownPlans CPowerPolicyManager::GetKnownPlans()
{
    const ScopedLock lock(g_known_lock);
    return g_known;
}

std::optional<GUID> CPowerPolicyManager::GetActiveScheme()
{
    OwnedScheme active;
    if (PowerGetActiveScheme(nullptr, active.Receive()) != ERROR_SUCCESS || !active) return {};
    return *active.Get();
}
