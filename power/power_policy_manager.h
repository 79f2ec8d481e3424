// The power plans, as never-sleep mode is taken up and given up.
#pragma once

#include <optional>

#include "platform/lock.h"
#include "platform/power.h"

// One plan's values: each the index of the power setting that plan_settings.h names for it.
struct PowerSchemeConfig
{
    GUID guidScheme;
    DWORD dwProcMaxAc, dwProcMaxDc;                    // percent
    DWORD dwProcMinAc, dwProcMinDc;                    // percent
    DWORD dwSleepTimeoutAc, dwSleepTimeoutDc;          // seconds, 0 never
    DWORD dwDisplayTimeoutAc, dwDisplayTimeoutDc;      // seconds, 0 never
    DWORD dwBrightnessAc, dwBrightnessDc;              // percent
    DWORD dwPowerButtonAc, dwPowerButtonDc;            // an action
    DWORD dwRtcWakeAc, dwRtcWakeDc;                    // 0 or 1
    DWORD dwHybridSleepAc, dwHybridSleepDc;            // 0 or 1; never read
    DWORD dwAwayModeAc, dwAwayModeDc;                  // 0 or 1
    DWORD dwPasswordRequiredAc, dwPasswordRequiredDc;  // 0 or 1
};

struct PlanSetting;

// Two plans are involved. The user scheme is the one that was active when the service took control;
// it stays active in normal use, and only its away mode and wake timers are changed. The
// never-sleep scheme, Power saver or the OEM's, is active in the never-sleep states. What is
// changed is saved before, in memory only, and put back. A value that could not be read could not
// be put back either: it is neither changed nor written.
//
// Any operation may be called on any thread. One lock is held for the length of each that changes
// plans or reads what is saved, so that no thread saves a plan that another has half restored.
//
// A platform call that fails is logged, and the operation goes on with its next step.
class CPowerPolicyManager
{
public:
    CPowerPolicyManager() = default;
    // Changes no plan: putting them back is for ExitHolvControl.
    virtual ~CPowerPolicyManager() = default;
    CPowerPolicyManager(const CPowerPolicyManager&) = delete;
    CPowerPolicyManager& operator=(const CPowerPolicyManager&) = delete;

    // --- What never-sleep mode does to the plans (power_transitions.cpp) ---

    // The service takes control of the plans: both allow away mode and wake timers.
    void EnterHolvControl();
    // Puts both plans back as they were, and activates none.
    void ExitHolvControl();

    // HOLV_ACTIVE is entered, with the never-sleep scheme, the user's brightness and password on
    // wake; HOLV_ACTIVE or HOLV_IDLE is left.
    void EnterHolvState();
    void ExitHolvState();

    // HOLV_DND is entered, with the processor held down as well, and left.
    void EnterDoNotDisturbState();
    void ExitDoNotDisturbState();

    // Lets the system's own idle timer put the machine to sleep after a minute. The caller has
    // released the service's power requests; the time-out comes back when the state is left.
    void TransitionFromHolvToS3();

    // The user has chosen a plan: unless it is the user scheme already, the old one is put back and
    // the new one taken control of. Null does nothing.
    void OnPowerOptionChanged(const GUID* newScheme);

    // --- Queries (power_setting_accessors.cpp) ---

    // Whether the machine is on AC power; FALSE when that is unknown, TRUE when the system does not
    // answer.
    static BOOL IsOnAcNow();

    // Whether the user scheme wants a password on wake, for the present source. TRUE when the
    // system does not say which that is.
    BOOL IsPasswordRequiredOnWake();

    // The active plan's sleep time-out in seconds, 0 for never; 0xFFFFFFFF when it cannot be read.
    static DWORD GetActiveSleepIdleTimeoutValue(BOOL bAc);
    static DWORD GetActiveSleepIdleTimeoutValue()
    {
        return GetActiveSleepIdleTimeoutValue(IsOnAcNow());
    }

    // --- Access to plans (power_setting_accessors.cpp) ---

    // Activates a plan; whatever was written to it counts from now on.
    static void SetActivePowerScheme(const GUID* scheme);

    // "Low", "Hig", "Bal", "Custom"; "???" for null.
    static const wchar_t* GetSchemeName(const GUID* scheme);

    // One setting of a plan, for AC or DC (`bAc` zero). A Get is TRUE even where the setting could
    // not be read: *value is then as it was, or 1 for the wake timers. `read`, where given, tells
    // whether *value was stored. A Set is TRUE when the value was written. Both are FALSE for a
    // null pointer.
    static BOOL GetSleepTimeoutValue(const GUID* scheme, BOOL bAc, DWORD* value,
                                     bool* read = nullptr);
    static BOOL SetSleepTimeoutValue(const GUID* scheme, BOOL bAc, DWORD value);
    static BOOL GetRtcWakeValue(const GUID* scheme, BOOL bAc, DWORD* value, bool* read = nullptr);
    static BOOL SetRtcWakeValue(const GUID* scheme, BOOL bAc, DWORD value);
    static BOOL GetAwayModeValue(const GUID* scheme, BOOL bAc, DWORD* value, bool* read = nullptr);
    static BOOL SetAwayModeValue(const GUID* scheme, BOOL bAc, DWORD value);
    static BOOL GetHybridSleepValue(const GUID* scheme, BOOL bAc, DWORD* value,
                                    bool* read = nullptr);
    static BOOL GetProcPowerMinValue(const GUID* scheme, BOOL bAc, DWORD* value,
                                     bool* read = nullptr);
    static BOOL SetProcPowerMinValue(const GUID* scheme, BOOL bAc, DWORD value);
    static BOOL GetProcPowerMaxValue(const GUID* scheme, BOOL bAc, DWORD* value,
                                     bool* read = nullptr);
    static BOOL SetProcPowerMaxValue(const GUID* scheme, BOOL bAc, DWORD value);
    static BOOL GetDisplayTimeoutValue(const GUID* scheme, BOOL bAc, DWORD* value,
                                       bool* read = nullptr);
    static BOOL GetDisplayBrightnessValue(const GUID* scheme, BOOL bAc, DWORD* value,
                                          bool* read = nullptr);
    static BOOL SetDisplayBrightnessValue(const GUID* scheme, BOOL bAc, DWORD value);
    static BOOL GetPowerButtonPressActionValue(const GUID* scheme, BOOL bAc, DWORD* value,
                                               bool* read = nullptr);
    static BOOL GetPasswordRequiredValue(const GUID* scheme, BOOL bAc, DWORD* value,
                                         bool* read = nullptr);
    static BOOL SetPasswordRequiredValue(const GUID* scheme, BOOL bAc, DWORD value);

private:
    // A plan that the service changes: which one, and which of its values may be changed.
    struct ChangeablePlan
    {
        const GUID& scheme;
        BOOL saved;
        const PowerSchemeConfig& read;  // nonzero where the value was ever read

        bool MayChange(const PlanSetting& setting, BOOL bAc) const;
        void Set(const PlanSetting& setting, BOOL bAc, DWORD value) const;
    };
    struct AcDcValues
    {
        std::optional<DWORD> ac, dc;
    };

    // --- Saving and restoring (power_scheme_store.cpp), with the lock held ---

    void SaveUserPowerOptions();
    void RestoreUserPowerOptions();
    void SaveHolvPowerOptions();
    void RestoreHolvPowerOptions();
    // The four values of the never-sleep scheme that giving up control puts back.
    void SaveHolvRestoreValues();
    // Reads all but the hybrid sleep. What cannot be read stays as it is in `config`.
    static void ReadPowerSchemeConfig(const GUID& scheme, PowerSchemeConfig& config,
                                      PowerSchemeConfig& read);
    static void LogSchemeValues(const GUID& scheme);

    ChangeablePlan UserPlan() const;
    ChangeablePlan HolvPlan() const;
    // The never-sleep scheme again, for what changes with the control and not with a state.
    ChangeablePlan HolvPlanUnderControl() const;

    // --- Steps of the transitions (power_transitions.cpp), with the lock held ---

    static void ConfigureSchemeForHolv(const ChangeablePlan& plan);
    AcDcValues ReadUserValues(const PlanSetting& setting) const;
    void SetHolvValues(const PlanSetting& setting, const AcDcValues& values) const;
    void PutBackHolvValue(const PlanSetting& setting, BOOL bAc) const;
    void PutBackHolvValues(const PlanSetting& setting) const;
    void LimitProcessor(BOOL bAc, DWORD maximumPercent) const;
    void PutBackProcessor(BOOL bAc) const;
    void PutBackOverriddenSleepTimeout();

    BOOL m_bUserOptionsSaved = FALSE;
    GUID m_UserScheme{};
    DWORD m_dwUserAwayModeAc = 0, m_dwUserAwayModeDc = 0;
    DWORD m_dwUserRtcWakeAc = 0, m_dwUserRtcWakeDc = 0;
    DWORD m_dwHolvAwayModeAc = 0, m_dwHolvAwayModeDc = 0;
    DWORD m_dwHolvRtcWakeAc = 0, m_dwHolvRtcWakeDc = 0;
    BOOL m_bHolvOptionsSaved = FALSE;
    PowerSchemeConfig m_HolvConfig{};
    BOOL m_bSleepTimeoutOverridden = FALSE;  // by TransitionFromHolvToS3, and still to be put back

    // The values above that were ever read, each nonzero in its field, from the plan guidScheme.
    PowerSchemeConfig m_UserRead{};
    PowerSchemeConfig m_HolvRead{};         // of m_HolvConfig
    PowerSchemeConfig m_HolvRestoreRead{};  // of the four never-sleep members

    // The settings may change while HOLV_DND lasts: what its entry changed.
    BOOL m_bProcessorLimitedOnDc = FALSE;
    BOOL m_bSleepAllowedInDnd = FALSE;

    BOOL m_bInNeverSleepState = FALSE;  // between an Enter and its Exit

    CriticalSection m_lock;
};
