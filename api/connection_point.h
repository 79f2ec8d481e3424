// Where an object's clients connect their sinks.
#pragma once

#include <cstddef>
#include <vector>

#include "platform/automation.h"
#include "platform/owned.h"

// The connection point for one outgoing dispatch interface. It is part of its container and shares
// its reference count. Call on the container's thread only. A sink that is being called may call
// the connection point.
class ConnectionPoint final : public IConnectionPoint
{
public:
    ConnectionPoint(IConnectionPointContainer& container, const IID& id)
        : m_container(container), m_id(id)
    {
    }
    ConnectionPoint(const ConnectionPoint&) = delete;
    ConnectionPoint& operator=(const ConnectionPoint&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return m_container.AddRef(); }
    ULONG STDMETHODCALLTYPE Release() override { return m_container.Release(); }

    HRESULT STDMETHODCALLTYPE GetConnectionInterface(IID* id) override;
    HRESULT STDMETHODCALLTYPE
    GetConnectionPointContainer(IConnectionPointContainer** container) override;
    HRESULT STDMETHODCALLTYPE Advise(IUnknown* sink, DWORD* cookie) override;
    HRESULT STDMETHODCALLTYPE Unadvise(DWORD cookie) override;
    HRESULT STDMETHODCALLTYPE EnumConnections(IEnumConnections** connections) override;

    // The number of slots, free ones included; it never shrinks.
    std::size_t slots() const { return m_sinks.size(); }
    // The sink in a slot, with a reference for the caller; empty for a free slot.
    OwnedInterface<IDispatch> Sink(std::size_t slot) const;

private:
    IConnectionPointContainer& m_container;
    const IID m_id;
    // The cookie of a sink is its slot, counted from 1.
    std::vector<OwnedInterface<IDispatch>> m_sinks;
};
