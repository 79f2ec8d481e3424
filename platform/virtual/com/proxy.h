// Proxies: each stands in one apartment for an object of another, and its methods are calls into
// that one.
#pragma once

#include <map>
#include <memory>

#include "platform/virtual/com/counted.h"
#include "platform/virtual/com/marshal.h"

namespace virtual_pc {

class Proxy;

// One interface of a proxy.
class ProxyFacet
{
public:
    explicit ProxyFacet(Proxy& proxy) : m_proxy(proxy) {}
    virtual ~ProxyFacet() = default;
    ProxyFacet(const ProxyFacet&) = delete;
    ProxyFacet& operator=(const ProxyFacet&) = delete;

    Proxy& proxy() const { return m_proxy; }
    virtual IUnknown* interface() = 0;

private:
    Proxy& m_proxy;
};

class Proxy final : public Counted
{
public:
    Proxy(std::shared_ptr<Exported> object, std::shared_ptr<Apartment> apartment);

    std::string_view Kind() const override { return "reference to an object elsewhere"; }
    void Closed() override;

    // Null after the last reference was released.
    const std::shared_ptr<Exported>& object() const { return m_object; }

    // As the object's QueryInterface does, for interfaces whose calls can be marshaled: some of the
    // system's, and those that a registered type library describes. Without the machine held.
    HRESULT Query(REFIID id, void** interface);

    // Sets `object` for one call; fails when it cannot be called.
    HRESULT Begin(Function& function, std::shared_ptr<Exported>& object);

private:
    std::shared_ptr<Exported> m_object;
    const std::shared_ptr<Apartment> m_apartment;  // the only one it may be used in
    std::map<GUID, std::unique_ptr<ProxyFacet>, GuidLess> m_facets;
};

// Returns an interface of a proxy in `here`, the apartment of the caller, for an object of another
// apartment. Without the machine held.
HRESULT ImportProxy(const ExportedInterface& exported, Apartment& here, void** interface);

}  // namespace virtual_pc
