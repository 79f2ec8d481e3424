// The service's object, as a client that knows its interface calls it. The system marshals the
// calls by the type library that the service has registered.
#pragma once

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
    // Null without success.
    IHOLVAgent* Get() const { return m_object.Get(); }

private:
    HRESULT m_result;
    bool m_in_apartment = false;
    OwnedInterface<IHOLVAgent> m_object;
};
