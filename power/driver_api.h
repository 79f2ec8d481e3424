// The platform device, which receives the number of the never-sleep state so that its firmware can
// follow. One thread at a time.
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

    // Opens the device by its path. FALSE, after a log line, when it cannot be opened; no device is
    // open then.
    virtual BOOL OpenDriver(LPCWSTR path);

    // Finds and opens the device. FALSE, after a log line, when there is none or it cannot be
    // opened.
    virtual BOOL Initialize();

    // Closes the device; does nothing when none is open.
    virtual void CloseDriver();

    // The path of the first present device interface of a class. FALSE, after a log line, when
    // there is none; `path` is then unchanged.
    static BOOL GetInterfaceAlias(const GUID& interfaceClass, WCHAR (&path)[kDevicePathSize]);

    // Sends the device its mode: the number of the never-sleep state entered, or 0 when one is
    // left. FALSE, after a log line, when the device refuses.
    BOOL SetNeverSleepMode(DWORD mode);

private:
    OwnedFile m_hDriver;
};

// Whether the PC has the platform device.
BOOL IsHolvDevicePresent();

// Opens the platform device, sends it a mode, and closes it. False when there is none or it
// refuses.
bool SendDeviceMode(DWORD mode);
