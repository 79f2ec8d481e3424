#include "api/agent_module.h"

#include <atomic>

namespace {

std::atomic<AgentModule*> g_module = nullptr;

}  // namespace

void SetAgentModule(AgentModule* module) { g_module = module; }

void LockAgentModule()
{
    if (AgentModule* module = g_module) module->Lock();
}

void UnlockAgentModule()
{
    if (AgentModule* module = g_module) module->Unlock();
}
