#include "state/listed_holders.h"

#include "platform/lock.h"
#include "power/never_sleep_away_mode.h"

namespace {

CriticalSection g_holders_lock;
std::vector<RequestHolder> g_holders;

}  // namespace

void NoteHolders(const RequestListing& listing)
{
    auto holders = listing.Holders();
    if (!holders) return;
    std::erase_if(*holders, [](const RequestHolder& h) { return h.reason == kRequestReason; });
    const ScopedLock lock(g_holders_lock);
    g_holders = std::move(*holders);
}

std::vector<RequestHolder> ListedHolders()
{
    const ScopedLock lock(g_holders_lock);
    return g_holders;
}
