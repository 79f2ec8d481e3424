#include "platform/virtual/com/variant.h"

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <limits>
#include <string>

#include "platform/virtual/base/names.h"

namespace virtual_pc {
namespace {

bool IsReference(VARTYPE type) { return type == VT_DISPATCH || type == VT_UNKNOWN; }

// The number that a text shows, in decimal or after "&H" in hexadecimal digits, with blanks before
// and after it; nothing for any other text.
std::optional<double> NumberIn(std::wstring text)
{
    const std::size_t first = text.find_first_not_of(L' ');
    if (first == text.npos) return std::nullopt;
    text = text.substr(first, text.find_last_not_of(L' ') + 1 - first);
    wchar_t* end = nullptr;
    double number = 0;
    if (text.starts_with(L"&H") || text.starts_with(L"&h")) {
        number = static_cast<double>(std::wcstoul(text.c_str() + 2, &end, 16));
    } else if (text.find_first_not_of(L"+-.0123456789eE") == text.npos) {
        number = std::wcstod(text.c_str(), &end);
    }
    if (!end || end == text.c_str() || *end != L'\0') return std::nullopt;
    return number;
}

// The truth that a text names.
std::optional<bool> TruthIn(const std::wstring& text)
{
    for (const wchar_t* word : {L"True", L"#TRUE#"}) {
        if (SameName(text, word)) return true;
    }
    for (const wchar_t* word : {L"False", L"#FALSE#"}) {
        if (SameName(text, word)) return false;
    }
    return std::nullopt;
}

// A value as a number; nothing when it is not convertible.
std::optional<double> NumberOf(const VARIANT& value)
{
    switch (value.vt) {
        case VT_EMPTY:
            return 0;
        case VT_I1:
            return value.cVal;
        case VT_UI1:
            return value.bVal;
        case VT_I2:
            return value.iVal;
        case VT_UI2:
            return value.uiVal;
        case VT_I4:
        case VT_INT:
            return value.lVal;
        case VT_UI4:
        case VT_UINT:
            return value.ulVal;
        case VT_I8:
            return static_cast<double>(value.llVal);
        case VT_UI8:
            return static_cast<double>(value.ullVal);
        case VT_R4:
            return value.fltVal;
        case VT_R8:
            return value.dblVal;
        case VT_BOOL:
            return value.boolVal;
        default:
            break;
    }
    if (value.vt != VT_BSTR || !value.bstrVal) return std::nullopt;
    return NumberIn(value.bstrVal);
}

// Rounds a number to type T, halves to the even neighbour.
template <class T>
HRESULT RoundTo(double number, T& place)
{
    const double rounded = std::nearbyint(number);
    if (!(rounded >= static_cast<double>(std::numeric_limits<T>::min()) &&
          rounded <= static_cast<double>(std::numeric_limits<T>::max()))) {
        return DISP_E_OVERFLOW;
    }
    place = static_cast<T>(rounded);
    return S_OK;
}

HRESULT NumberTo(VARIANT& value, double number, VARTYPE type)
{
    switch (type) {
        case VT_I1:
            return RoundTo(number, value.cVal);
        case VT_UI1:
            return RoundTo(number, value.bVal);
        case VT_I2:
            return RoundTo(number, value.iVal);
        case VT_UI2:
            return RoundTo(number, value.uiVal);
        case VT_I4:
        case VT_INT:
            return RoundTo(number, value.lVal);
        case VT_UI4:
        case VT_UINT:
            return RoundTo(number, value.ulVal);
        case VT_R4:
            value.fltVal = static_cast<float>(number);
            return S_OK;
        case VT_R8:
            value.dblVal = number;
            return S_OK;
        case VT_BOOL:
            value.boolVal = number != 0 ? VARIANT_TRUE : VARIANT_FALSE;
            return S_OK;
        default:
            return DISP_E_TYPEMISMATCH;
    }
}

HRESULT TextOf(const VARIANT& value, std::wstring& text)
{
    const std::optional<double> number = NumberOf(value);
    if (!number) return DISP_E_TYPEMISMATCH;
    wchar_t digits[40];
    std::swprintf(digits, std::size(digits), L"%.15G", *number);
    text = value.vt == VT_EMPTY ? L"" : digits;
    return S_OK;
}

// Copies a value, with a string or a reference of its own.
HRESULT Copy(VARIANT& destination, const VARIANT& source)
{
    destination = source;
    if (source.vt == VT_BSTR && source.bstrVal) {
        destination.bstrVal = SysAllocString(source.bstrVal);
        if (!destination.bstrVal) return E_OUTOFMEMORY;
    }
    if (IsReference(source.vt) && source.punkVal) source.punkVal->AddRef();
    return S_OK;
}

HRESULT ConvertTo(VARIANT& destination, const VARIANT& source, VARTYPE type)
{
    if (source.vt == type) return Copy(destination, source);
    if (source.vt == VT_NULL) return DISP_E_TYPEMISMATCH;
    if (source.vt != VT_EMPTY && SizeOf(source.vt) == 0) return DISP_E_BADVARTYPE;
    if (type == VT_BOOL && source.vt == VT_BSTR && source.bstrVal) {
        if (const auto truth = TruthIn(source.bstrVal)) return NumberTo(destination, *truth, type);
    }
    if (type == VT_BSTR) {
        std::wstring text;
        if (const HRESULT result = TextOf(source, text); FAILED(result)) return result;
        destination.bstrVal = SysAllocString(text.c_str());
        return destination.bstrVal ? S_OK : E_OUTOFMEMORY;
    }
    if (IsReference(type)) {
        if (!IsReference(source.vt)) return DISP_E_TYPEMISMATCH;
        if (!source.punkVal) return S_OK;
        return source.punkVal->QueryInterface(type == VT_DISPATCH ? IID_IDispatch : IID_IUnknown,
                                              reinterpret_cast<void**>(&destination.punkVal));
    }
    const std::optional<double> number = NumberOf(source);
    return number ? NumberTo(destination, *number, type) : DISP_E_TYPEMISMATCH;
}

}  // namespace

std::size_t SizeOf(VARTYPE type)
{
    switch (type) {
        case VT_I1:
        case VT_UI1:
            return 1;
        case VT_I2:
        case VT_UI2:
        case VT_BOOL:
            return 2;
        case VT_I4:
        case VT_UI4:
        case VT_INT:
        case VT_UINT:
        case VT_R4:
        case VT_ERROR:
            return 4;
        case VT_I8:
        case VT_UI8:
        case VT_R8:
            return 8;
        case VT_BSTR:
        case VT_DISPATCH:
        case VT_UNKNOWN:
            return sizeof(void*);
        case VT_VARIANT:
            return sizeof(VARIANT);
        default:
            return 0;
    }
}

VARIANT Dereferenced(const VARIANT& value)
{
    if (!(value.vt & VT_BYREF)) return value;
    const auto type = static_cast<VARTYPE>(value.vt & VT_TYPEMASK);
    if (type == VT_VARIANT) return Dereferenced(*value.pvarVal);
    VARIANT there{};
    there.vt = type;
    std::memcpy(&there.llVal, value.byref, SizeOf(type));
    return there;
}

HRESULT Convert(VARIANT& destination, const VARIANT& source, VARTYPE type)
{
    VARIANT converted{};
    const VARIANT value = Dereferenced(source);
    const HRESULT result = ConvertTo(converted, value, type);
    destination = SUCCEEDED(result) ? converted : VARIANT{};
    if (SUCCEEDED(result)) destination.vt = type;
    return result;
}

}  // namespace virtual_pc
