// The system's listing of power requests, of any form: each holder has a request, a kind and a name
// that stand in it.

#include <string>

#include "fuzz/input.h"
#include "power/request_holders.h"

namespace {

void ExpectIn(const std::wstring& listing, const std::wstring& text, const char* what)
{
    if (listing.find(text) == listing.npos)
        RingAlarm(std::string(what) + " that the listing lacks");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::wstring listing(data, data + size);
    RequestListing read;
    for (std::size_t at = 0; at < listing.size();) {
        const std::size_t end = std::min(listing.find(L'\n', at), listing.size() - 1) + 1;
        read.Take(listing.substr(at, end - at));
        at = end;
    }
    const auto holders = read.Holders();
    if (!holders) return 0;
    for (const RequestHolder& holder : *holders) {
        if (holder.request.empty()) RingAlarm("a holder of nothing");
        ExpectIn(listing, holder.request + L":", "a request");
        ExpectIn(listing, L"[" + holder.kind + L"]", "a kind");
        ExpectIn(listing, holder.name, "a name");
        ExpectIn(listing, holder.reason, "a reason");
    }
    return 0;
}
