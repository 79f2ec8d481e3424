#include "api/event_proxy.h"

#include "api/enumerator.h"

HRESULT CProxy_HOLVAgentSinkEvent::EnumConnectionPoints(IEnumConnectionPoints** points)
{
    if (!points) return E_POINTER;
    return ConnectionPointEnumerator::Make({&m_point}, 0, points);
}

HRESULT CProxy_HOLVAgentSinkEvent::FindConnectionPoint(REFIID id, IConnectionPoint** point)
{
    if (!point) return E_POINTER;
    *point = nullptr;
    if (!IsEqualIID(id, DIID__HOLVAgentSinkEvent)) return CONNECT_E_NOCONNECTION;
    m_point.AddRef();
    *point = &m_point;
    return S_OK;
}

HRESULT CProxy_HOLVAgentSinkEvent::Fire_HOLVAgentEventChanged(HOLVAgentEventCodeEnum NewValue,
                                                              VARIANT_BOOL* pCancel)
{
    HRESULT result = S_OK;
    // A sink may connect other sinks during its call. Those in new slots receive the next event
    // only.
    const std::size_t slots = m_point.slots();
    for (std::size_t slot = 0; slot < slots; ++slot) {
        const OwnedInterface<IDispatch> sink = m_point.Sink(slot);
        if (!sink) continue;
        VARIANTARG arguments[2] = {};  // in reverse order
        arguments[0].vt = VT_BYREF | VT_BOOL;
        arguments[0].pboolVal = pCancel;
        arguments[1].vt = VT_I4;
        arguments[1].lVal = NewValue;
        DISPPARAMS parameters{arguments, nullptr, 2, 0};
        result = sink.Get()->Invoke(DISPID_HOLVAgentEventChanged, IID_NULL, LOCALE_USER_DEFAULT,
                                    DISPATCH_METHOD, &parameters, nullptr, nullptr, nullptr);
    }
    return result;
}
