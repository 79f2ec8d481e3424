// What the executable writes into the registry to be found as a server of component objects, and as
// a service.
#pragma once

#include "platform/com.h"

enum class RegisterFor
{
    machine,
    user,  // the current one only
};

// Registers the AppID; with `service` it is that of a service, which is installed. What an earlier
// registration installed is removed first.
HRESULT RegisterAppId(bool service, RegisterFor whom);

// Removes the service and the AppID.
HRESULT UnregisterAppId(RegisterFor whom);

// Register and unregister the class and the type library. The first failure ends them.
HRESULT RegisterServer(RegisterFor whom);
HRESULT UnregisterServer(RegisterFor whom);
