#include "power/request_holders.h"

void RequestListing::Take(std::wstring line)
{
    while (!line.empty() && (line.back() == L'\n' || line.back() == L'\r')) line.pop_back();
    const std::size_t end = line.find(L']');
    if (line.empty()) {
        m_reason_follows = false;
    } else if (line.back() == L':' && line.find(L' ') == line.npos) {
        line.pop_back();
        m_request = line;
        m_reason_follows = false;
    } else if (line.front() == L'[' && end != line.npos && !m_request.empty()) {
        const std::size_t name = line.find_first_not_of(L' ', end + 1);
        m_holders.push_back({m_request, line.substr(1, end - 1),
                             name == line.npos ? std::wstring() : line.substr(name), L""});
        m_reason_follows = true;
    } else if (m_reason_follows) {
        m_holders.back().reason = line;
        m_reason_follows = false;
    }
}

std::optional<std::vector<RequestHolder>> RequestListing::Holders() const
{
    if (m_request.empty()) return std::nullopt;
    return m_holders;
}
