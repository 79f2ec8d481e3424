#include "ctl/agent_object.h"

AgentObject::AgentObject() : m_result(CoInitialize(nullptr))
{
    m_in_apartment = SUCCEEDED(m_result);
    if (m_in_apartment) {
        m_result = CoCreateInstance(CLSID_HOLVAgentApi, nullptr, CLSCTX_LOCAL_SERVER,
                                    IID_IHOLVAgent, reinterpret_cast<void**>(m_object.Receive()));
    }
}

AgentObject::~AgentObject()
{
    m_object.Reset();
    if (m_in_apartment) CoUninitialize();
}
