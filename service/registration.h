// Registers the executable as a COM server, and as a service.
#pragma once

#include "platform/com.h"

enum class RegisterFor
{
    machine,
    user,  // the current user only
};

// Removes an installed service, then registers the AppID. With `service` the AppID is that of a
// service, which is installed as well.
HRESULT RegisterAppId(bool service, RegisterFor whom);

// Removes the service and the AppID.
HRESULT UnregisterAppId(RegisterFor whom);

// Register and unregister the class and the type library. Both stop at the first failure.
HRESULT RegisterServer(RegisterFor whom);
HRESULT UnregisterServer(RegisterFor whom);
