// Changes the power plans for never-sleep mode, and restores them.
#pragma once

#include <atomic>
#include <optional>

#include "platform/lock.h"
#include "platform/power.h"

// The values of one plan; plan_settings.h maps the fields to power settings.
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
// never-sleep scheme, Power saver or the OEM's, is active in the never-sleep states. Values are
// saved, in memory only, before they are changed, and restored later. A value that could not be
// read could not be restored, so it is never written.
//
// Any thread. Operations that change plans or read saved values hold one lock throughout, so that
// no thread saves a plan that another thread has half restored.
//
// A failed platform call is logged, and the operation continues with its next step.
class CPowerPolicyManager
{
public:
    CPowerPolicyManager() = default;
    // Restores no plan; ExitHolvControl does.
    virtual ~CPowerPolicyManager() = default;
    CPowerPolicyManager(const CPowerPolicyManager&) = delete;
    CPowerPolicyManager& operator=(const CPowerPolicyManager&) = delete;

    // --- What never-sleep mode does to the plans (power_transitions.cpp) ---

    // Takes control: saves both plans, lets both allow away mode and wake timers, and activates the
    // user scheme.
    void EnterHolvControl();
    // Restores both plans; activates neither.
    void ExitHolvControl();

    // Enter copies the user scheme's brightness and password-on-wake values into the never-sleep
    // scheme and activates it, for HOLV_ACTIVE. Exit restores the values and activates the user
    // scheme, when HOLV_ACTIVE or HOLV_IDLE is left.
    void EnterHolvState();
    void ExitHolvState();

    // The same for HOLV_DND. Enter also limits the processor (MaxCpuPowerLimit) and, with DndToS3,
    // shortens the sleep time-out to a minute and allows wake timers.
    void EnterDoNotDisturbState();
    void ExitDoNotDisturbState();

    // Shortens the never-sleep scheme's sleep time-out to a minute, so that the system's idle timer
    // puts the PC to sleep. The caller has released the service's power requests. The time-out is
    // restored when the never-sleep state is left.
    void TransitionFromHolvToS3();

    // The user has activated another plan: restores both plans and takes control again, with that
    // plan as the user scheme. Does nothing for null, for the present user scheme, and in a
    // never-sleep state.
    void OnPowerOptionChanged(const GUID* newScheme);

    // --- Queries (power_setting_accessors.cpp) ---

    // Whether the PC is on AC power. FALSE when the system does not know the source, TRUE when the
    // query fails.
    static BOOL IsOnAcNow();

    // Whether the user scheme requires a password on wake for the present power source. TRUE when
    // the source cannot be queried.
    BOOL IsPasswordRequiredOnWake();

    // The active plan's sleep time-out in seconds, 0 for never; 0xFFFFFFFF when it cannot be read.
    static DWORD GetActiveSleepIdleTimeoutValue(BOOL bAc);
    static DWORD GetActiveSleepIdleTimeoutValue()
    {
        return GetActiveSleepIdleTimeoutValue(IsOnAcNow());
    }

    // --- What the reconciler compares (plan_facts.cpp) ---

    struct Plans
    {
        bool user_saved;  // the plan in `user` is the user's
        GUID user;
        GUID never_sleep;
        bool timeout_shortened;  // by TransitionFromHolvToS3, and not restored yet
        bool activation_failed;  // the last activation of a plan by the service
    };
    Plans GetPlans() const;

    // What the service knows of the plans without asking the system, which may take long: the
    // user's, and the one that it has last found or made active; GUID_NULL before that.
    struct KnownPlans
    {
        GUID user;
        GUID active;
        bool operator==(const KnownPlans& other) const;
    };
    // Makes the copy anew if they have changed since it was made.
    static void RefreshKnownPlans(Guarded<KnownPlans>::Copy& copy);

    // The active plan; nothing when it cannot be read.
    static std::optional<GUID> GetActiveScheme();

    // --- Access to plans (power_setting_accessors.cpp) ---

    // Activates a plan, which also puts the values written to it into effect.
    static void SetActivePowerScheme(const GUID* scheme);

    // Calls `what` with the lock held, under which every operation changes the plans.
    void CallAlone(void (*what)());

    // "Low", "Hig", "Bal", "Custom"; "???" for null.
    static const wchar_t* GetSchemeName(const GUID* scheme);

    // Read and write one setting of a plan, for AC, or for DC with `bAc` zero. A Get returns TRUE
    // even if the setting could not be read: *value is then unchanged, or 1 for the wake timers.
    // `*read`, if given, tells whether *value was stored. A Set returns TRUE when the value was
    // written. Both return FALSE for a null `scheme` or `value`.
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
    // Saves the four values of the never-sleep scheme that ExitHolvControl restores.
    void SaveHolvRestoreValues();
    // Reads every setting but hybrid sleep. A value that cannot be read keeps its old value in
    // `config`.
    static void ReadPowerSchemeConfig(const GUID& scheme, PowerSchemeConfig& config,
                                      PowerSchemeConfig& read);
    static void LogSchemeValues(const GUID& scheme);

    ChangeablePlan UserPlan() const;
    ChangeablePlan HolvPlan() const;
    // The never-sleep scheme, for the values that EnterHolvControl changes.
    ChangeablePlan HolvPlanUnderControl() const;

    // --- Steps of the transitions (power_transitions.cpp), with the lock held ---

    static void ConfigureSchemeForHolv(const ChangeablePlan& plan);
    AcDcValues ReadUserValues(const PlanSetting& setting) const;
    void SetHolvValues(const PlanSetting& setting, const AcDcValues& values) const;
    void RestoreHolvValue(const PlanSetting& setting, BOOL bAc) const;
    void RestoreHolvValues(const PlanSetting& setting) const;
    void LimitProcessor(BOOL bAc, DWORD maximumPercent) const;
    void RestoreProcessor(BOOL bAc) const;
    void RestoreOverriddenSleepTimeout();

    BOOL m_bUserOptionsSaved = FALSE;
    GUID m_UserScheme{};
    DWORD m_dwUserAwayModeAc = 0, m_dwUserAwayModeDc = 0;
    DWORD m_dwUserRtcWakeAc = 0, m_dwUserRtcWakeDc = 0;
    DWORD m_dwHolvAwayModeAc = 0, m_dwHolvAwayModeDc = 0;
    DWORD m_dwHolvRtcWakeAc = 0, m_dwHolvRtcWakeDc = 0;
    BOOL m_bHolvOptionsSaved = FALSE;
    PowerSchemeConfig m_HolvConfig{};
    BOOL m_bSleepTimeoutOverridden = FALSE;  // by TransitionFromHolvToS3

    // Per field of m_dwUser*: nonzero once the value was read from plan guidScheme.
    PowerSchemeConfig m_UserRead{};
    PowerSchemeConfig m_HolvRead{};         // the same for m_HolvConfig
    PowerSchemeConfig m_HolvRestoreRead{};  // and for m_dwHolv*

    // What the entry of HOLV_DND changed, for its exit: the settings may have changed since.
    BOOL m_bProcessorLimitedOnDc = FALSE;
    BOOL m_bSleepAllowedInDnd = FALSE;

    BOOL m_bInNeverSleepState = FALSE;  // between an Enter and its Exit

    static void NoteUserPlan(const GUID& scheme);
    static void NoteActivePlan(const GUID& scheme);
    static std::optional<GUID> LastKnownActivePlan();

    static std::atomic<BOOL> m_bActivationFailed;

    mutable CriticalSection m_lock;
};
