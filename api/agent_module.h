// What the objects of the control interface ask of the process they live in: to be kept alive.
// Apart from the process's module, so that the interface does not know the service.
#pragma once

// Any thread.
class AgentModule
{
public:
    // Each object of the control interface holds one lock for as long as it lives; a client may
    // hold more through the class object.
    virtual void Lock() = 0;
    // May begin the end of the process, where that lives for its clients only.
    virtual void Unlock() = 0;

protected:
    ~AgentModule() = default;
};

// The process's module, which must live as long as any object; null for none. Set before the class
// objects are registered.
void SetAgentModule(AgentModule* module);

// Nothing happens without a module.
void LockAgentModule();
void UnlockAgentModule();
