#include "api/connection_point.h"

#include <algorithm>
#include <new>

#include "api/enumerator.h"

namespace {

constexpr std::size_t kFirstSlots = 4;

}  // namespace

HRESULT ConnectionPoint::QueryInterface(REFIID id, void** object)
{
    if (!object) return E_POINTER;
    *object = nullptr;
    if (!IsEqualIID(id, IID_IUnknown) && !IsEqualIID(id, IID_IConnectionPoint)) {
        return E_NOINTERFACE;
    }
    AddRef();
    *object = static_cast<IConnectionPoint*>(this);
    return S_OK;
}

HRESULT ConnectionPoint::GetConnectionInterface(IID* id)
{
    if (!id) return E_POINTER;
    *id = m_id;
    return S_OK;
}

HRESULT ConnectionPoint::GetConnectionPointContainer(IConnectionPointContainer** container)
{
    if (!container) return E_POINTER;
    m_container.AddRef();
    *container = &m_container;
    return S_OK;
}

HRESULT ConnectionPoint::Advise(IUnknown* sink, DWORD* cookie)
{
    if (cookie) *cookie = 0;
    if (!sink || !cookie) return E_POINTER;
    // Query the sink before choosing a slot: while this call waits for the answer, another client's
    // Advise may take the slot.
    OwnedInterface<IDispatch> connected;
    if (FAILED(sink->QueryInterface(m_id, reinterpret_cast<void**>(connected.Receive())))) {
        return CONNECT_E_CANNOTCONNECT;
    }
    auto slot = std::ranges::find_if(m_sinks, [](const auto& taken) { return !taken; });
    const auto place = slot - m_sinks.begin();
    if (slot == m_sinks.end()) {
        try {
            m_sinks.resize(std::max(kFirstSlots, 2 * m_sinks.size()));
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
        slot = m_sinks.begin() + place;
    }
    *slot = std::move(connected);
    *cookie = static_cast<DWORD>(place) + 1;
    return S_OK;
}

HRESULT ConnectionPoint::Unadvise(DWORD cookie)
{
    if (cookie == 0 || cookie > m_sinks.size() || !m_sinks[cookie - 1]) {
        return CONNECT_E_NOCONNECTION;
    }
    // Free the slot before releasing the sink, which may call back during its release.
    const OwnedInterface<IDispatch> sink = std::move(m_sinks[cookie - 1]);
    return S_OK;
}

HRESULT ConnectionPoint::EnumConnections(IEnumConnections** connections)
{
    if (!connections) return E_POINTER;
    std::vector<CONNECTDATA> connected;
    for (std::size_t slot = 0; slot < m_sinks.size(); ++slot) {
        if (m_sinks[slot]) connected.push_back({m_sinks[slot].Get(), static_cast<DWORD>(slot) + 1});
    }
    return ConnectionEnumerator::Make(std::move(connected), 0, connections);
}

OwnedInterface<IDispatch> ConnectionPoint::Sink(std::size_t slot) const
{
    IDispatch* const sink = m_sinks[slot].Get();
    if (sink) sink->AddRef();
    return OwnedInterface<IDispatch>(sink);
}
