// The platform device, which is told the never-sleep state so that its firmware can follow. One
// thread at a time.
#pragma once

#include "platform/base.h"
#include "platform/owned.h"

class CDriverApi
{
public:
    // In characters, the terminator included.
    static constexpr std::size_t kDevicePathSize = 260;

    CDriverApi() = default;
    virtual ~CDriverApi();
    CDriverApi(const CDriverApi&) = delete;
    CDriverApi& operator=(const CDriverApi&) = delete;

    // Opens the device by its path. FALSE, after a line in the log, when it cannot be opened; none
    // is open then.
    virtual BOOL OpenDriver(LPCWSTR path);

    // Finds and opens the device. FALSE, after a line in the log, when there is none or it cannot
    // be opened.
    virtual BOOL Initialize();

    // Closes the device; nothing when none is open.
    virtual void CloseDriver();

    // The path of the first interface of a class that a present device offers. FALSE, after a line
    // in the log, when there is none; `path` is then left alone.
    static BOOL GetInterfaceAlias(const GUID& interfaceClass, WCHAR (&path)[kDevicePathSize]);

    // Tells the device the mode: the number of the never-sleep state entered, or 0 when one is
    // left. FALSE, after a line in the log, when the device does not take it.
    BOOL SetNeverSleepMode(DWORD mode);

private:
    OwnedFile m_hDriver;
};

// Whether the machine has the platform device at all.
BOOL IsHolvDevicePresent();
