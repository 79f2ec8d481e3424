// The service's object, as a client calls it: by the members' dispatch ids, which needs no other
// marshalling than the system's own.
#pragma once

#include <vector>

#include "api/agent_api.h"
#include "platform/com.h"
#include "platform/owned.h"

// Created in a COM apartment of this thread's. COM starts the service where it does not run.
class AgentObject
{
public:
    AgentObject();
    ~AgentObject();
    AgentObject(const AgentObject&) = delete;
    AgentObject& operator=(const AgentObject&) = delete;

    // Of the creation.
    HRESULT result() const { return m_result; }
    IDispatch* object() const { return m_object.Get(); }

    HRESULT SetParam(HOLVAgentFeatureEnum feature, LONG value) const;
    HRESULT GetParam(HOLVAgentFeatureEnum feature, LONG* value) const;
    HRESULT SetInterval(UINT start, UINT end) const;
    HRESULT GetInterval(UINT* start, UINT* end) const;
    HRESULT SetEventCode(HOLVAgentEventCodeEnum code) const;
    HRESULT GetEventCode(HOLVAgentEventCodeEnum* code) const;

private:
    // The arguments stand in reverse order, as IDispatch wants them.
    HRESULT Invoke(DISPID member, WORD how, std::vector<VARIANT> reversed,
                   VARIANT* result = nullptr) const;

    HRESULT m_result;
    bool m_in_apartment = false;
    OwnedInterface<IDispatch> m_object;
};
