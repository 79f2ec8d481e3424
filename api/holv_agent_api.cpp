#include "api/holv_agent_api.h"

#include <new>

#include "api/agent_features.h"
#include "api/agent_module.h"
#include "log/log.h"
#include "settings/settings.h"
#include "settings/settings_store.h"
#include "state/activity.h"
#include "state/never_sleep_state.h"

namespace {

constexpr const wchar_t* kVersion = L"1,1,70,537";

// Minor version 0, which every registered 1.x library satisfies.
constexpr WORD kAskedMinor = 0;

}  // namespace

// --- Life ---

HRESULT HOLVAgentApi::Create(IUnknown* outer, REFIID id, void** object)
{
    if (!object) return E_POINTER;
    *object = nullptr;
    // An aggregated object is created through its own IUnknown, the only interface whose references
    // the outer object does not count.
    if (outer && !IsEqualIID(id, IID_IUnknown)) return CLASS_E_NOAGGREGATION;
    auto* const made = new (std::nothrow) HOLVAgentApi(outer);
    if (!made) return E_OUTOFMEMORY;
    const HRESULT result = made->m_self.QueryInterface(id, object);
    made->m_self.Release();
    return result;
}

HOLVAgentApi::HOLVAgentApi(IUnknown* outer) : m_controlling(outer ? outer : &m_self)
{
    LockAgentModule();
}

HOLVAgentApi::~HOLVAgentApi() { UnlockAgentModule(); }

HRESULT HOLVAgentApi::Self::QueryInterface(REFIID id, void** object)
{
    if (!object) return E_POINTER;
    *object = nullptr;
    if (IsEqualIID(id, IID_IUnknown)) {
        *object = this;
    } else if (IsEqualIID(id, IID_IHOLVAgent) || IsEqualIID(id, IID_IDispatch)) {
        *object = static_cast<IHOLVAgent*>(&m_owner);
    } else if (IsEqualIID(id, IID_IConnectionPointContainer)) {
        *object = static_cast<IConnectionPointContainer*>(&m_owner);
    } else {
        return E_NOINTERFACE;
    }
    // The outer object counts this reference, unless it is one of IUnknown, which is counted here.
    static_cast<IUnknown*>(*object)->AddRef();
    return S_OK;
}

ULONG HOLVAgentApi::Self::Release()
{
    const ULONG left = --m_references;
    if (left == 0) delete &m_owner;
    return left;
}

HRESULT HOLVAgentApi::QueryInterface(REFIID id, void** object)
{
    return m_controlling->QueryInterface(id, object);
}

// --- Calls by name and number ---

HRESULT HOLVAgentApi::NeedTypeInfo()
{
    if (m_type_info) return S_OK;
    // The library is loaded for its own locale, so that the client's locale does not matter.
    OwnedInterface<ITypeLib> library;
    const HRESULT loaded = LoadRegTypeLib(LIBID_HOLVAgentLib, kHOLVAgentLibMajor, kAskedMinor,
                                          kHOLVAgentLibLocale, library.Receive());
    if (FAILED(loaded)) return loaded;
    return library.Get()->GetTypeInfoOfGuid(IID_IHOLVAgent, m_type_info.Receive());
}

HRESULT HOLVAgentApi::GetTypeInfoCount(UINT* count)
{
    if (!count) return E_POINTER;
    *count = 1;
    return S_OK;
}

HRESULT HOLVAgentApi::GetTypeInfo(UINT index, LCID, ITypeInfo** info)
{
    if (index != 0) return DISP_E_BADINDEX;
    if (!info) return E_POINTER;
    *info = nullptr;
    if (const HRESULT result = NeedTypeInfo(); FAILED(result)) return result;
    m_type_info.Get()->AddRef();
    *info = m_type_info.Get();
    return S_OK;
}

HRESULT HOLVAgentApi::GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids)
{
    if (const HRESULT result = NeedTypeInfo(); FAILED(result)) return result;
    return m_type_info.Get()->GetIDsOfNames(names, count, ids);
}

HRESULT HOLVAgentApi::Invoke(DISPID member, REFIID, LCID, WORD flags, DISPPARAMS* arguments,
                             VARIANT* result, EXCEPINFO* exception, UINT* badArgument)
{
    if (const HRESULT needed = NeedTypeInfo(); FAILED(needed)) return needed;
    return m_type_info.Get()->Invoke(static_cast<IHOLVAgent*>(this), member, flags, arguments,
                                     result, exception, badArgument);
}

// --- The features ---

HRESULT HOLVAgentApi::SetNeverSleepParam(HOLVAgentFeatureEnum nParamId, LONG bEnable)
{
    const auto value = static_cast<DWORD>(bEnable);
    Log(1, L"HOLVAgentApi::SetNeverSleepParam", L"Setting %s to %s", FeatureName(nParamId),
        FeatureValueWord(nParamId, value));
    SetFeature(nParamId, value);
    return S_OK;
}

HRESULT HOLVAgentApi::GetNeverSleepParam(HOLVAgentFeatureEnum nParamId, LONG* pbsRetValue)
{
    if (!pbsRetValue) return E_INVALIDARG;
    const DWORD value = GetFeature(nParamId);
    *pbsRetValue = static_cast<LONG>(value);
    Log(1, L"HOLVAgentApi::GetNeverSleepParam", L"Returning %s of %s", FeatureName(nParamId),
        FeatureValueWord(nParamId, value));
    return S_OK;
}

HRESULT HOLVAgentApi::SetDoNotDisturbTimeInterval(UINT nStartTimeInMinutes, UINT nEndTimeInMinutes)
{
    Log(1, L"HOLVAgentApi::SetDoNotDisturbTimeInterval",
        L"SetDoNotDisturbTimeInterval, Start=%d, End=%d\n", nStartTimeInMinutes, nEndTimeInMinutes);
    const Activity change(Activity::Kind::fact);
    RegWriteDWord(L"DoNotDisturbStart", nStartTimeInMinutes);
    RegWriteDWord(L"DoNotDisturbEnd", nEndTimeInMinutes);
    g_dwDoNotDisturbStart = nStartTimeInMinutes;
    g_dwDoNotDisturbEnd = nEndTimeInMinutes;
    CNeverSleepState::RefreshDoNotDisturbState();
    return S_OK;
}

HRESULT HOLVAgentApi::GetDoNotDisturbTimeInterval(UINT* pnStartTimeInMinutes,
                                                  UINT* pnEndTimeInMinutes)
{
    if (pnStartTimeInMinutes) *pnStartTimeInMinutes = g_dwDoNotDisturbStart;
    if (pnEndTimeInMinutes) *pnEndTimeInMinutes = g_dwDoNotDisturbEnd;
    return S_OK;
}

HRESULT HOLVAgentApi::GetNeverSleepApiVersion(BSTR* pbsRetValue)
{
    if (!pbsRetValue) return E_POINTER;
    *pbsRetValue = SysAllocString(kVersion);
    return *pbsRetValue ? S_OK : E_OUTOFMEMORY;
}

// --- The event code ---

HRESULT HOLVAgentApi::get_NeverSleepEventCode(HOLVAgentEventCodeEnum* pVal)
{
    if (!pVal) return E_POINTER;
    *pVal = m_event_code;
    return S_OK;
}

HRESULT HOLVAgentApi::put_NeverSleepEventCode(HOLVAgentEventCodeEnum newVal)
{
    VARIANT_BOOL cancel = VARIANT_FALSE;
    Fire_HOLVAgentEventChanged(newVal, &cancel);
    if (cancel == VARIANT_FALSE) m_event_code = newVal;
    return S_OK;
}
