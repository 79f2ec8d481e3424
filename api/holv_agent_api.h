// The class through which clients configure the service.
#pragma once

#include <atomic>

#include "api/event_proxy.h"

// An object for one client. It has no state but its sinks and its event code: every object reads
// and writes the service's settings.
//
// It lives in the service's single-threaded apartment, so its operations never run at the same
// time; but while an operation calls a sink, another call may come in. It may be aggregated into
// another object. Each object holds a lock on the process's module.
class HOLVAgentApi final : public IHOLVAgent, public CProxy_HOLVAgentSinkEvent
{
public:
    // Creates an object, aggregated into `outer` unless that is null, and returns its interface
    // `id`. With `outer`, `id` must be IID_IUnknown: CLASS_E_NOAGGREGATION otherwise.
    static HRESULT Create(IUnknown* outer, REFIID id, void** object);

    HOLVAgentApi(const HOLVAgentApi&) = delete;
    HOLVAgentApi& operator=(const HOLVAgentApi&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return m_controlling->AddRef(); }
    ULONG STDMETHODCALLTYPE Release() override { return m_controlling->Release(); }

    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override;
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID locale, ITypeInfo** info) override;
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID reserved, LPOLESTR* names, UINT count,
                                            LCID locale, DISPID* ids) override;
    HRESULT STDMETHODCALLTYPE Invoke(DISPID member, REFIID reserved, LCID locale, WORD flags,
                                     DISPPARAMS* arguments, VARIANT* result, EXCEPINFO* exception,
                                     UINT* badArgument) override;

    HRESULT STDMETHODCALLTYPE SetNeverSleepParam(HOLVAgentFeatureEnum nParamId,
                                                 LONG bEnable) override;
    HRESULT STDMETHODCALLTYPE SetDoNotDisturbTimeInterval(UINT nStartTimeInMinutes,
                                                          UINT nEndTimeInMinutes) override;
    HRESULT STDMETHODCALLTYPE GetNeverSleepApiVersion(BSTR* pbsRetValue) override;
    HRESULT STDMETHODCALLTYPE GetNeverSleepParam(HOLVAgentFeatureEnum nParamId,
                                                 LONG* pbsRetValue) override;
    HRESULT STDMETHODCALLTYPE get_NeverSleepEventCode(HOLVAgentEventCodeEnum* pVal) override;
    HRESULT STDMETHODCALLTYPE put_NeverSleepEventCode(HOLVAgentEventCodeEnum newVal) override;
    HRESULT STDMETHODCALLTYPE GetDoNotDisturbTimeInterval(UINT* pnStartTimeInMinutes,
                                                          UINT* pnEndTimeInMinutes) override;

private:
    // The object's own IUnknown, which is not forwarded to an outer object.
    class Self final : public IUnknown
    {
    public:
        explicit Self(HOLVAgentApi& owner) : m_owner(owner) {}
        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override;
        ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
        ULONG STDMETHODCALLTYPE Release() override;

    private:
        HOLVAgentApi& m_owner;
        std::atomic<ULONG> m_references = 1;
    };

    explicit HOLVAgentApi(IUnknown* outer);
    ~HOLVAgentApi();

    // Loads the type information on first use.
    HRESULT NeedTypeInfo();

    Self m_self{*this};
    IUnknown* const m_controlling;  // counts the references: the outer object, or m_self
    OwnedInterface<ITypeInfo> m_type_info;
    HOLVAgentEventCodeEnum m_event_code = E_HOLV_EVENT_UPDATE_AVAILABLE;
};
