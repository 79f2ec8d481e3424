// How the objects of the control interface keep their process alive. Separate from the process's
// module, so that api/ does not include service/.
#pragma once

// Any thread.
class AgentModule
{
public:
    // Each object of the control interface holds one lock for as long as it lives; a client may
    // hold more through the class object.
    virtual void Lock() = 0;
    // When the process runs as a COM server, and not as the service, releasing the last lock ends
    // it.
    virtual void Unlock() = 0;

protected:
    ~AgentModule() = default;
};

// Sets the process's module, which must outlive all objects; null for none. Call before the class
// objects are registered.
void SetAgentModule(AgentModule* module);

// Both do nothing without a module.
void LockAgentModule();
void UnlockAgentModule();
