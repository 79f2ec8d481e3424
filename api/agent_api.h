// The control interface in C++, as HOLVAgentLib.idl describes it.
#pragma once

#include "platform/automation.h"

// The features that SetNeverSleepParam switches and GetNeverSleepParam reads.
enum HOLVAgentFeatureEnum : LONG
{
    E_HOLV_STATE = 0,
    E_AUDIO = 1,
    E_DONOTDISTURB = 2,
    E_APPLICATION_SUSPEND = 3,
    E_SHOW_LYNC_CONTROLS = 4,  // read only
    E_TURN_ON_DISPLAY_ON_LYNC = 5,
    E_ENTER_S3_ON_DND = 6,
    E_ENABLE_HOLV_ON_DC = 7,
    E_BATTERY_PRESENT = 8,  // read only
};

enum HOLVAgentApiReturnCodeEnum : LONG
{
    E_SUCCESS = 0,
    E_FAILURE = static_cast<LONG>(0x80042000u),
};

enum HOLVAgentEventCodeEnum : LONG
{
    E_HOLV_EVENT_UPDATE_AVAILABLE = 0,
    E_HOLV_EVENT_STATE_CHANGE = 1,
    E_HOLV_EVENT_SERVICE_STOP = 2,
};

inline constexpr GUID LIBID_HOLVAgentLib{
    0xC4D72A19, 0x3B8E, 0x4F05, {0x9A, 0x61, 0xE2, 0xB7, 0xD0, 0x48, 0xF1, 0xC3}};
inline constexpr WORD kHOLVAgentLibMajor = 1;
inline constexpr WORD kHOLVAgentLibMinor = 1;
inline constexpr LCID kHOLVAgentLibLocale = 1033;

inline constexpr IID IID_IHOLVAgent{
    0x9D4E2C71, 0x5A8B, 0x4F3E, {0xB0, 0xC6, 0x73, 0xE1, 0xA2, 0xD9, 0x4F, 0x58}};
inline constexpr IID DIID__HOLVAgentSinkEvent{
    0x5B0E8D34, 0xA7C2, 0x4E91, {0x8F, 0x36, 0xD1, 0xA9, 0x4C, 0x27, 0xB6, 0x50}};
inline constexpr CLSID CLSID_HOLVAgentApi{
    0x3E9F1B20, 0x6C4A, 0x4D8E, {0xB7, 0xF2, 0x95, 0xA0, 0xC1, 0xD3, 0xE8, 0x64}};

// Reads and switches the never-sleep features. All objects share the service's one configuration;
// each has its own event code and sinks.
class IHOLVAgent : public IDispatch
{
public:
    // Switches a feature; ignores a read-only or unknown one. Always S_OK.
    virtual HRESULT STDMETHODCALLTYPE SetNeverSleepParam(HOLVAgentFeatureEnum nParamId,
                                                         LONG bEnable) = 0;
    // In minutes since local midnight, stored unchanged. Always S_OK.
    virtual HRESULT STDMETHODCALLTYPE SetDoNotDisturbTimeInterval(UINT nStartTimeInMinutes,
                                                                  UINT nEndTimeInMinutes) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetNeverSleepApiVersion(BSTR* pbsRetValue) = 0;
    // 0 for an unknown feature. E_INVALIDARG for a null pointer.
    virtual HRESULT STDMETHODCALLTYPE GetNeverSleepParam(HOLVAgentFeatureEnum nParamId,
                                                         LONG* pbsRetValue) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_NeverSleepEventCode(HOLVAgentEventCodeEnum* pVal) = 0;
    // Sends a code to this object's sinks, and makes it the current one unless a sink cancels it.
    // Always S_OK.
    virtual HRESULT STDMETHODCALLTYPE put_NeverSleepEventCode(HOLVAgentEventCodeEnum newVal) = 0;
    // Null pointers are ignored. Always S_OK.
    virtual HRESULT STDMETHODCALLTYPE GetDoNotDisturbTimeInterval(UINT* pnStartTimeInMinutes,
                                                                  UINT* pnEndTimeInMinutes) = 0;

protected:
    ~IHOLVAgent() = default;
};

// The members' dispatch ids.
inline constexpr DISPID DISPID_SetNeverSleepParam = 1;
inline constexpr DISPID DISPID_SetDoNotDisturbTimeInterval = 2;
inline constexpr DISPID DISPID_GetNeverSleepApiVersion = 3;
inline constexpr DISPID DISPID_GetNeverSleepParam = 4;
inline constexpr DISPID DISPID_NeverSleepEventCode = 5;
inline constexpr DISPID DISPID_GetDoNotDisturbTimeInterval = 6;

// The sinks' interface. It adds no slots to IDispatch: events arrive through IDispatch::Invoke, as
// calls of the one member HOLVAgentEventChanged(NewValue, Cancel).
using _HOLVAgentSinkEvent = IDispatch;
inline constexpr DISPID DISPID_HOLVAgentEventChanged = 1;
