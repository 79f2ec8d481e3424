// Nothing is done yet: no plan is touched, and the machine counts as on AC power.
#include "power/power_policy_manager.h"

void CPowerPolicyManager::EnterHolvControl() {}
void CPowerPolicyManager::ExitHolvControl() {}
void CPowerPolicyManager::EnterHolvState() {}
void CPowerPolicyManager::ExitHolvState() {}
void CPowerPolicyManager::EnterDoNotDisturbState() {}
void CPowerPolicyManager::ExitDoNotDisturbState() {}
BOOL CPowerPolicyManager::IsOnAcNow() { return TRUE; }
