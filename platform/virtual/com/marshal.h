// Marshaling from one apartment to another: references to objects, and VARIANTs.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "platform/automation.h"
#include "platform/virtual/com/apartment.h"

namespace virtual_pc {

// The proxy classes that the registry names for dispatch interfaces, and for the others that a type
// library describes.
inline constexpr const wchar_t* kByDispatch = L"{00020420-0000-0000-C000-000000000046}";
inline constexpr const wchar_t* kByTypeLibrary = L"{00020424-0000-0000-C000-000000000046}";

// An interface of an exported object.
struct ExportedInterface
{
    std::shared_ptr<Exported> object;
    IID id{};
};

// Exports an interface of `object`, or of the object behind it when `object` is a proxy. For null,
// `exported` stays empty. Without the machine held.
HRESULT ExportInterface(IUnknown* object, REFIID id, ExportedInterface& exported);
// Returns an interface that may be called in the caller's apartment, with a reference that the
// caller must release; null when `exported` is empty. Without the machine held.
HRESULT ImportInterface(const ExportedInterface& exported, void** object);

// A VARIANT in transit: it owns no memory and no reference of either side.
class TravellingValue
{
public:
    // DISP_E_BADVARTYPE for a value that cannot leave its apartment. In the sender's apartment.
    HRESULT Pack(const VARIANT& value);
    // Unpacks it in the receiver's apartment. A VT_BYREF value points into `places`, which must
    // live as long as the value.
    HRESULT Unpack(VARIANT& value, std::deque<VARIANT>& places) const;
    // Writes the returned value to the place that the sender's VT_BYREF value points to.
    HRESULT WriteBack(const VARIANT& value) const;

    bool by_reference() const { return m_by_reference; }

private:
    VARTYPE m_type = VT_EMPTY;
    bool m_by_reference = false;
    std::uint64_t m_bits = 0;
    bool m_null = false;
    std::wstring m_text;
    ExportedInterface m_object;
    std::unique_ptr<TravellingValue> m_inner;  // of VT_BYREF | VT_VARIANT
};

}  // namespace virtual_pc
