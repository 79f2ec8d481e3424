#include "state/state_change.h"

CriticalSection g_state_change;
bool StateChange::m_open = false;

StateChange::StateChange()
{
    g_state_change.Enter();
    m_open = true;
}

void StateChange::End()
{
    if (!m_open) return;
    m_open = false;
    g_state_change.Leave();
}
