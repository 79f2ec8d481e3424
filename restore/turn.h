// Whose turn it is to restore, where two processes would: the service that starts, and holvctl.
#pragma once

#include "platform/owned.h"

// Holds a named object for as long as it exists; while it is held, no other process gets it. It is
// free again when its holder has ended, in whatever way.
class RestoreTurn
{
public:
    // Waits for the turn, `patienceMs` at most.
    explicit RestoreTurn(DWORD patienceMs);

    // Whether the wait has ended with the turn.
    bool mine() const { return static_cast<bool>(m_name); }

private:
    OwnedHandle m_name;
};
