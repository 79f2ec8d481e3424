// The platform device, which is told the never-sleep state so that its firmware can follow.
#pragma once

#include "platform/base.h"

class CDriverApi
{
public:
    CDriverApi() = default;
    virtual ~CDriverApi() = default;
    CDriverApi(const CDriverApi&) = delete;
    CDriverApi& operator=(const CDriverApi&) = delete;

    // Finds and opens the device. FALSE when it could not be opened.
    virtual BOOL Initialize();

    // Tells the device the mode: the number of the never-sleep state entered, or 0 when one is
    // left.
    BOOL SetNeverSleepMode(DWORD mode);
};

// Whether the machine has the platform device at all.
BOOL IsHolvDevicePresent();
