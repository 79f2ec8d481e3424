#include "ctl/request_holders.h"

#include <cwchar>
#include <iterator>

#include "platform/owned.h"

std::optional<std::vector<RequestHolder>> ListRequestHolders()
{
    const OwnedCommandOutput output(_wpopen(L"powercfg -requests", L"rt"));
    if (!output) return std::nullopt;
    RequestListing listing;
    wchar_t line[1024];
    while (std::fgetws(line, static_cast<int>(std::size(line)), output.Get())) listing.Take(line);
    return listing.Holders();
}
