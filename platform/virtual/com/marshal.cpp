#include "platform/virtual/com/marshal.h"

#include <cstring>

#include "platform/virtual/com/com.h"
#include "platform/virtual/com/proxy.h"
#include "platform/virtual/com/variant.h"
#include "platform/virtual/core/leaving.h"
#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/thread.h"

namespace virtual_pc {
namespace {

// An interface that crosses the border of an apartment settles the security of the process: from
// then on the system's defaults hold, unless the process has set its own.
void SettleSecurity()
{
    const Thread& self = *Thread::Self();
    const Hold hold(Machine::Current());
    if (self.process) Machine::Current().com.SettleSecurity(self.process, {.implicit = true});
}

}  // namespace

// --- References ---

HRESULT ExportInterface(IUnknown* object, REFIID id, ExportedInterface& exported)
{
    exported = {};
    if (!object) return S_OK;
    SettleSecurity();
    // A proxy is exported as the object that it stands for, so that no proxy stands for a proxy.
    if (const auto* facet = dynamic_cast<ProxyFacet*>(object)) {
        exported = {facet->proxy().object(), id};
        return S_OK;
    }
    const std::shared_ptr<Apartment> home = Thread::Self()->membership.apartment;
    if (!home) return CO_E_NOTINITIALIZED;
    IUnknown* identity = nullptr;
    HRESULT asked = E_FAIL;
    EnterProcess(
        [&] { asked = object->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity)); });
    if (FAILED(asked)) return asked;
    bool known = true;
    {
        const Hold hold(Machine::Current());
        std::weak_ptr<Exported>& place = home->exported[identity];
        exported = {place.lock(), id};
        if (!exported.object) {
            exported.object = std::make_shared<Exported>(home, identity);
            place = exported.object;
            known = false;
        }
    }
    if (known) EnterProcess([&] { identity->Release(); });
    return exported.object->Learn(id);
}

HRESULT ImportInterface(const ExportedInterface& exported, void** object)
{
    *object = nullptr;
    if (!exported.object) return S_OK;
    SettleSecurity();
    const std::shared_ptr<Apartment> here = Thread::Self()->membership.apartment;
    if (!here) return CO_E_NOTINITIALIZED;
    if (here != exported.object->home) return ImportProxy(exported, *here, object);
    if (const HRESULT learned = exported.object->Learn(exported.id); FAILED(learned)) {
        return learned;
    }
    IUnknown* found = nullptr;
    {
        const Hold hold(Machine::Current());
        found = exported.object->Find(exported.id);
    }
    if (!found) return RPC_E_DISCONNECTED;
    EnterProcess([&] { found->AddRef(); });
    *object = found;
    return S_OK;
}

// --- Values ---

HRESULT TravellingValue::Pack(const VARIANT& value)
{
    m_type = value.vt & VT_TYPEMASK;
    m_by_reference = (value.vt & VT_BYREF) != 0;
    if (value.vt == VT_EMPTY || value.vt == VT_NULL) return S_OK;
    if ((value.vt & ~(VT_BYREF | VT_TYPEMASK)) != 0 || SizeOf(m_type) == 0) {
        return DISP_E_BADVARTYPE;
    }
    if (m_by_reference && !value.byref) return E_POINTER;
    if (m_type == VT_VARIANT) {
        if (!m_by_reference) return DISP_E_BADVARTYPE;
        m_inner = std::make_unique<TravellingValue>();
        return m_inner->Pack(*value.pvarVal);
    }
    VARIANT held{};
    std::memcpy(&held.llVal, m_by_reference ? value.byref : &value.llVal, SizeOf(m_type));
    switch (m_type) {
        case VT_BSTR:
            m_null = !held.bstrVal;
            m_text =
                m_null ? std::wstring() : std::wstring(held.bstrVal, SysStringLen(held.bstrVal));
            return S_OK;
        case VT_DISPATCH:
            return ExportInterface(held.punkVal, IID_IDispatch, m_object);
        case VT_UNKNOWN:
            return ExportInterface(held.punkVal, IID_IUnknown, m_object);
        default:
            m_bits = held.ullVal;
            return S_OK;
    }
}

HRESULT TravellingValue::Unpack(VARIANT& value, std::deque<VARIANT>& places) const
{
    value = {};
    VARIANT held{};
    HRESULT result = S_OK;
    if (m_inner) {
        result = m_inner->Unpack(held, places);
    } else if (m_type == VT_BSTR) {
        held.bstrVal = m_null ? nullptr : SysAllocString(m_text.c_str());
        if (!m_null && !held.bstrVal) result = E_OUTOFMEMORY;
    } else if (m_type == VT_DISPATCH || m_type == VT_UNKNOWN) {
        result = ImportInterface(m_object, reinterpret_cast<void**>(&held.punkVal));
    } else {
        held.ullVal = m_bits;
    }
    if (FAILED(result)) return result;
    if (!m_inner) held.vt = m_type;
    if (!m_by_reference) {
        value = held;
        return S_OK;
    }
    VARIANT& place = places.emplace_back(held);
    value.vt = static_cast<VARTYPE>(VT_BYREF | m_type);
    value.byref = m_type == VT_VARIANT ? static_cast<void*>(&place) : &place.llVal;
    return S_OK;
}

HRESULT TravellingValue::WriteBack(const VARIANT& value) const
{
    const TravellingValue& back = m_inner ? *m_inner : *this;
    std::deque<VARIANT> places;
    VARIANT held{};
    if (m_inner) {
        if (back.m_by_reference) return back.WriteBack(*value.pvarVal);
        const HRESULT result = back.Unpack(held, places);
        if (FAILED(result)) return result;
        VariantClear(value.pvarVal);
        *value.pvarVal = held;
        return S_OK;
    }
    TravellingValue plain;
    plain.m_type = m_type;
    plain.m_bits = m_bits;
    plain.m_null = m_null;
    plain.m_text = m_text;
    plain.m_object = m_object;
    const HRESULT result = plain.Unpack(held, places);
    if (FAILED(result)) return result;
    VARIANT before{};
    before.vt = m_type;
    std::memcpy(&before.llVal, value.byref, SizeOf(m_type));
    VariantClear(&before);
    std::memcpy(value.byref, &held.llVal, SizeOf(m_type));
    return S_OK;
}

}  // namespace virtual_pc
