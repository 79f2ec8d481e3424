// The events of the control interface.
#pragma once

#include "api/agent_api.h"
#include "api/connection_point.h"

// The part of HOLVAgentApi that owns the connection point for _HOLVAgentSinkEvent and calls the
// sinks.
class CProxy_HOLVAgentSinkEvent : public IConnectionPointContainer
{
public:
    HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** points) override;
    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID id, IConnectionPoint** point) override;

    // Sends an event code to every connected sink, in slot order. All sinks share `pCancel`: each
    // sees what the sinks before it stored there. Returns the last sink's result, S_OK without
    // sinks; a sink that fails does not stop the others.
    HRESULT Fire_HOLVAgentEventChanged(HOLVAgentEventCodeEnum NewValue, VARIANT_BOOL* pCancel);

protected:
    CProxy_HOLVAgentSinkEvent() = default;
    ~CProxy_HOLVAgentSinkEvent() = default;

private:
    ConnectionPoint m_point{*this, DIID__HOLVAgentSinkEvent};
};
