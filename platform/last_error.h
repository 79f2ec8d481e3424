// Keeps the thread's last error across code that may change it.
#pragma once

#include "platform/base.h"

// Restores on destruction the last error that the thread had when this was made.
class LastErrorKeeper
{
public:
    LastErrorKeeper() : m_error(GetLastError()) {}
    ~LastErrorKeeper() { SetLastError(m_error); }
    LastErrorKeeper(const LastErrorKeeper&) = delete;
    LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

private:
    DWORD m_error;
};
