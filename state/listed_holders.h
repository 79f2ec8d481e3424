// Who else held power requests when the service last listed them.
#pragma once

#include <vector>

#include "power/request_holders.h"

// Keeps what a listing says, but for the service's own requests.
void NoteHolders(const RequestListing& listing);

// Any thread; waits for no listing.
std::vector<RequestHolder> ListedHolders();
