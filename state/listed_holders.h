// Who else held power requests when the service last listed them.
#pragma once

#include <memory>
#include <vector>

#include "platform/lock.h"
#include "power/request_holders.h"

// The same object as long as the listings say the same; null before the first.
using ListedHolders = std::shared_ptr<const std::vector<RequestHolder>>;

// Keeps what a listing says, but for the service's own requests.
void NoteHolders(const RequestListing& listing);

// Makes the copy anew if they have changed since. Any thread; waits for no listing.
void RefreshListedHolders(Guarded<ListedHolders>::Copy& copy);
