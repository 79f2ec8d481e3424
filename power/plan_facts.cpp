// What the manager knows of the plans.

#include "power/plan_settings.h"

std::atomic<BOOL> CPowerPolicyManager::m_bActivationFailed = FALSE;

CPowerPolicyManager::Plans CPowerPolicyManager::GetPlans() const
{
    const ScopedLock lock(m_lock);
    return {m_bUserOptionsSaved != FALSE, m_UserScheme, m_HolvConfig.guidScheme,
            m_bSleepTimeoutOverridden != FALSE, m_bActivationFailed != FALSE};
}

std::optional<GUID> CPowerPolicyManager::GetActiveScheme()
{
    OwnedScheme active;
    if (PowerGetActiveScheme(nullptr, active.Receive()) != ERROR_SUCCESS || !active) return {};
    return *active.Get();
}
