// What stands in one apartment for an object of another: each of its operations is a call into that
// one.
#pragma once

#include <map>
#include <memory>

#include "platform/virtual/counted.h"
#include "platform/virtual/marshal.h"

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

    // Null after the last reference was given back.
    const std::shared_ptr<Exported>& object() const { return m_object; }

    // As the object's QueryInterface does. The interface must be one whose calls can cross: one of
    // the system's, or one that a registered type library describes. Without the machine held.
    HRESULT Query(REFIID id, void** interface);

    // The object, for one call; an HRESULT when it cannot be called.
    HRESULT Begin(Function& function, std::shared_ptr<Exported>& object);

private:
    std::shared_ptr<Exported> m_object;
    const std::shared_ptr<Apartment> m_apartment;  // where it stands
    std::map<GUID, std::unique_ptr<ProxyFacet>, GuidLess> m_facets;
};

// Makes an interface of an object of another apartment one that may be called `here`, the caller's
// own. Without the machine held.
HRESULT ImportProxy(const ExportedInterface& exported, Apartment& here, void** interface);

}  // namespace virtual_pc
