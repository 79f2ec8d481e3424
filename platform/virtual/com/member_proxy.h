// The proxies of interfaces that a registered type library describes, called by their slots.
#pragma once

#include <memory>

#include "platform/virtual/com/proxy.h"

namespace virtual_pc {

// Null where the registry leads to no description of the interface. With the machine held.
std::unique_ptr<ProxyFacet> MakeMemberProxy(Proxy& proxy, REFIID id);

}  // namespace virtual_pc
