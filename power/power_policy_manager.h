// The power plans, as never-sleep mode is taken up and given up.
#pragma once

#include "platform/base.h"

class CPowerPolicyManager
{
public:
    CPowerPolicyManager() = default;
    virtual ~CPowerPolicyManager() = default;
    CPowerPolicyManager(const CPowerPolicyManager&) = delete;
    CPowerPolicyManager& operator=(const CPowerPolicyManager&) = delete;

    // The service takes control of the plans, and gives it up.
    void EnterHolvControl();
    void ExitHolvControl();

    // HOLV_ACTIVE is entered; HOLV_ACTIVE or HOLV_IDLE is left.
    void EnterHolvState();
    void ExitHolvState();

    // HOLV_DND is entered, and left.
    void EnterDoNotDisturbState();
    void ExitDoNotDisturbState();

    // Whether the machine is on AC power.
    BOOL IsOnAcNow();
};
