// Automation: BSTR strings and VARIANT values.

#include "platform/automation.h"

#include <cstring>
#include <string_view>

#include "platform/virtual/com/variant.h"
#include "platform/virtual/core/call.h"
#include "platform/virtual/core/memory.h"

using namespace virtual_pc;

namespace {

Function fn_sys_alloc_string{"SysAllocString"};
Function fn_sys_free_string{"SysFreeString", Failing::never, Role::releases};
Function fn_variant_clear{"VariantClear", Failing::never, Role::releases};
Function fn_variant_change_type{"VariantChangeType", Failing::hresult};

// The length of a string in bytes lies right before its text. Eight bytes keep the text aligned.
constexpr std::size_t kPrefix = 8;

DWORD& LengthOf(BSTR text) { return reinterpret_cast<DWORD*>(text)[-1]; }

}  // namespace

extern "C" {

BSTR WINAPI SysAllocString(const OLECHAR* text)
{
    Call call(fn_sys_alloc_string);
    if (call.Fails() || !text) return nullptr;
    const std::size_t length = std::wstring_view(text).size() * sizeof(wchar_t);
    auto* memory = static_cast<std::byte*>(
        Allocate(call, kPrefix + length + sizeof(wchar_t), "automation string"));
    auto* const string = reinterpret_cast<BSTR>(memory + kPrefix);
    std::memcpy(string, text, length);
    LengthOf(string) = static_cast<DWORD>(length);
    return string;
}

void WINAPI SysFreeString(BSTR text)
{
    Call call(fn_sys_free_string);
    if (text) Free(call, reinterpret_cast<std::byte*>(text) - kPrefix);
}

UINT WINAPI SysStringLen(BSTR text)
{
    return text ? LengthOf(text) / static_cast<UINT>(sizeof(wchar_t)) : 0;
}

void WINAPI VariantInit(VARIANTARG* value) { *value = {}; }

HRESULT WINAPI VariantClear(VARIANTARG* value)
{
    const VARIANT was = *value;
    if (was.vt != VT_EMPTY && was.vt != VT_NULL && SizeOf(was.vt & VT_TYPEMASK) == 0) {
        return DISP_E_BADVARTYPE;
    }
    {
        const Call call(fn_variant_clear);
        *value = {};
    }
    // A VT_BYREF value does not own what it points to.
    if (was.vt == VT_BSTR) SysFreeString(was.bstrVal);
    if ((was.vt == VT_DISPATCH || was.vt == VT_UNKNOWN) && was.punkVal) was.punkVal->Release();
    return S_OK;
}

HRESULT WINAPI VariantChangeType(VARIANTARG* destination, const VARIANTARG* source, USHORT,
                                 VARTYPE type)
{
    {
        Call call(fn_variant_change_type);
        if (call.Fails()) return static_cast<HRESULT>(call.error());
    }
    VARIANT converted{};
    const HRESULT result = Convert(converted, *source, type);
    if (FAILED(result)) return result;
    VariantClear(destination);
    *destination = converted;
    return S_OK;
}
}
