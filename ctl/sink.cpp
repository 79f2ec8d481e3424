#include "ctl/sink.h"

HRESULT SinkConnection::Sink::QueryInterface(REFIID id, void** object)
{
    if (!object) return E_POINTER;
    const bool known = IsEqualIID(id, IID_IUnknown) || IsEqualIID(id, IID_IDispatch) ||
                       IsEqualIID(id, DIID__HOLVAgentSinkEvent);
    *object = known ? static_cast<IDispatch*>(this) : nullptr;
    if (known) AddRef();
    return known ? S_OK : E_NOINTERFACE;
}

ULONG SinkConnection::Sink::Release()
{
    const ULONG left = --m_references;
    if (left == 0) delete this;
    return left;
}

HRESULT SinkConnection::Sink::GetTypeInfoCount(UINT* count)
{
    *count = 0;
    return S_OK;
}

HRESULT SinkConnection::Sink::GetTypeInfo(UINT, LCID, ITypeInfo**) { return E_NOTIMPL; }

HRESULT SinkConnection::Sink::GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*)
{
    return E_NOTIMPL;
}

// HOLVAgentEventChanged(code, cancel); the arguments come in reverse order.
HRESULT SinkConnection::Sink::Invoke(DISPID member, REFIID, LCID, WORD, DISPPARAMS* arguments,
                                     VARIANT*, EXCEPINFO*, UINT*)
{
    if (member != DISPID_HOLVAgentEventChanged || arguments->cArgs != 2) {
        return DISP_E_MEMBERNOTFOUND;
    }
    heard += L"heard event code " + std::to_wstring(arguments->rgvarg[1].lVal) +
             (m_refuse ? L" and refused it\n" : L"\n");
    if (m_refuse) *arguments->rgvarg[0].pboolVal = VARIANT_TRUE;
    return S_OK;
}

SinkConnection::SinkConnection(IDispatch* agent, bool refuse)
    : m_owned(new Sink(refuse)), m_sink(m_owned.Get())
{
    OwnedInterface<IConnectionPointContainer> container;
    m_result = agent->QueryInterface(IID_IConnectionPointContainer,
                                     reinterpret_cast<void**>(container.Receive()));
    if (SUCCEEDED(m_result)) {
        m_result =
            container.Get()->FindConnectionPoint(DIID__HOLVAgentSinkEvent, m_point.Receive());
    }
    if (SUCCEEDED(m_result)) m_result = m_point.Get()->Advise(m_sink, &m_cookie);
}

SinkConnection::~SinkConnection()
{
    if (SUCCEEDED(m_result)) m_point.Get()->Unadvise(m_cookie);
}
