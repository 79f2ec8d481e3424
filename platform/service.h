// The service control manager.
#pragma once

#include "platform/base.h"

#ifndef _WIN32

struct SERVICE_STATUS
{
    DWORD dwServiceType;
    DWORD dwCurrentState;
    DWORD dwControlsAccepted;
    DWORD dwWin32ExitCode;
    DWORD dwServiceSpecificExitCode;
    DWORD dwCheckPoint;
    DWORD dwWaitHint;
};

struct SERVICE_STATUS_HANDLE__;
using SERVICE_STATUS_HANDLE = SERVICE_STATUS_HANDLE__*;

#define SERVICE_STOPPED 0x00000001u
#define SERVICE_RUNNING 0x00000004u

#endif
