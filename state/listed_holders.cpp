#include "state/listed_holders.h"

#include "power/never_sleep_away_mode.h"

namespace {

Guarded<ListedHolders> g_holders;

}  // namespace

void NoteHolders(const RequestListing& listing)
{
    auto holders = listing.Holders();
    if (!holders) return;
    std::erase_if(*holders, [](const RequestHolder& h) { return h.reason == kRequestReason; });
    g_holders.Change([&](ListedHolders& kept) {
        if (kept && *kept == *holders) return false;
        kept = std::make_shared<std::vector<RequestHolder>>(std::move(*holders));
        return true;
    });
}

void RefreshListedHolders(Guarded<ListedHolders>::Copy& copy) { g_holders.Refresh(copy); }
