// Hears the event codes that the service sends to one object's clients.
#pragma once

#include <string>

#include "api/agent_api.h"
#include "platform/com.h"
#include "platform/owned.h"

// Connected from its construction to its destruction, in an apartment that serves calls while it
// waits for an answer.
class SinkConnection
{
public:
    // `refuse` makes the sink cancel every event code.
    SinkConnection(IDispatch* agent, bool refuse);
    ~SinkConnection();
    SinkConnection(const SinkConnection&) = delete;
    SinkConnection& operator=(const SinkConnection&) = delete;

    HRESULT result() const { return m_result; }
    // A line for each event code.
    std::wstring heard() const { return m_sink->heard; }

private:
    // COM counts its references; it is deleted with the last one.
    class Sink final : public IDispatch
    {
    public:
        explicit Sink(bool refuse) : m_refuse(refuse) {}
        virtual ~Sink() = default;

        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override;
        ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
        ULONG STDMETHODCALLTYPE Release() override;
        HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override;
        HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID locale, ITypeInfo** info) override;
        HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID id, LPOLESTR* names, UINT count, LCID locale,
                                                DISPID* ids) override;
        HRESULT STDMETHODCALLTYPE Invoke(DISPID member, REFIID id, LCID locale, WORD flags,
                                         DISPPARAMS* arguments, VARIANT* result,
                                         EXCEPINFO* exception, UINT* bad) override;

        std::wstring heard;

    private:
        const bool m_refuse;
        ULONG m_references = 1;
    };

    OwnedInterface<Sink> m_owned;
    Sink* const m_sink;
    OwnedInterface<IConnectionPoint> m_point;
    DWORD m_cookie = 0;
    HRESULT m_result;
};
