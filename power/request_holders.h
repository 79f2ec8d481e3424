// Who holds power requests, as the system's listing tells.
#pragma once

#include <optional>
#include <string>
#include <vector>

struct RequestHolder
{
    std::wstring request;  // "DISPLAY", "SYSTEM", "AWAYMODE" and so on
    std::wstring kind;     // "PROCESS", "DRIVER", "SERVICE"
    std::wstring name;
    std::wstring reason;  // "" for none

    bool operator==(const RequestHolder&) const = default;
};

// Reads the listing line by line: a request's heading, its holders, and below each its reason.
class RequestListing
{
public:
    void Take(std::wstring line);
    // Nothing for output of another form, such as an error.
    std::optional<std::vector<RequestHolder>> Holders() const;

private:
    std::wstring m_request;
    std::vector<RequestHolder> m_holders;
    bool m_reason_follows = false;
};
