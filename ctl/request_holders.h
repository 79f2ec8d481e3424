// Who holds power requests now.
#pragma once

#include <optional>
#include <vector>

#include "power/request_holders.h"

// Nothing where the system lists them to administrators only, or not at all.
std::optional<std::vector<RequestHolder>> ListRequestHolders();
