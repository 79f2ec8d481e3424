// What passes from one apartment to another: references to objects, and values of automation.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "platform/automation.h"
#include "platform/virtual/apartment.h"

namespace virtual_pc {

// The registry's name for the way by which calls of a dispatch interface cross.
inline constexpr const wchar_t* kByDispatch = L"{00020420-0000-0000-C000-000000000046}";

// An interface of an object that is known outside its apartment.
struct ExportedInterface
{
    std::shared_ptr<Exported> object;
    IID id{};
};

// Makes an interface of an object that lives in the caller's apartment, or is known there, ready to
// leave it; nothing for null. Without the machine held.
HRESULT ExportInterface(IUnknown* object, REFIID id, ExportedInterface& exported);
// Makes it one that may be called in the caller's apartment, with a reference for the caller; null
// for nothing. Without the machine held.
HRESULT ImportInterface(const ExportedInterface& exported, void** object);

// A value of automation on its way: what it holds, with no memory or object of either side.
class TravellingValue
{
public:
    // DISP_E_BADVARTYPE for a value that cannot leave its apartment. In the sender's apartment.
    HRESULT Pack(const VARIANT& value);
    // Makes it a value in the receiver's apartment. What it refers to lies in `places`, which must
    // live as long as the value.
    HRESULT Unpack(VARIANT& value, std::deque<VARIANT>& places) const;
    // Writes what has come back into the place that the sender's value refers to.
    HRESULT WriteBack(const VARIANT& value) const;

    bool by_reference() const { return m_by_reference; }

private:
    VARTYPE m_type = VT_EMPTY;
    bool m_by_reference = false;
    std::uint64_t m_bits = 0;
    bool m_null = false;
    std::wstring m_text;
    ExportedInterface m_object;
    std::unique_ptr<TravellingValue> m_inner;  // of a variant that is referred to
};

}  // namespace virtual_pc
