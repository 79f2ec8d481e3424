// Calls of the members of an interface by DISPID, with arguments of convertible types.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <utility>

#include "platform/virtual/com/type_info.h"
#include "platform/virtual/com/variant.h"

namespace virtual_pc {
namespace {

constexpr std::size_t kMostParameters = 4;
constexpr auto kException = static_cast<HRESULT>(0x80020009u);  // DISP_E_EXCEPTION

// Converts the arguments of one call, and owns the converted values.
class Arguments
{
public:
    ~Arguments()
    {
        for (VARIANT& value : m_values) VariantClear(&value);
    }

    // Converts an argument to the type of a parameter. For a pointer it takes the caller's own
    // VT_BYREF place, which must be of that type; VT_INT counts as VT_I4, and VT_UINT as VT_UI4.
    HRESULT Take(std::size_t at, const Parameter& parameter, const VARIANT& argument)
    {
        if (argument.vt == VT_ERROR && argument.scode == DISP_E_PARAMNOTFOUND) {
            return DISP_E_PARAMNOTOPTIONAL;
        }
        if (parameter.type.pointer) return TakePlace(at, parameter.type.type, argument);
        const HRESULT result = Convert(m_values[at], argument, parameter.type.type);
        if (SUCCEEDED(result)) m_words[at] = WordOf(m_values[at]);
        return result;
    }

    // Storage for the value that the member returns.
    void TakeResult(std::size_t at, VARTYPE type)
    {
        m_values[at].vt = type;
        m_words[at] = reinterpret_cast<std::uintptr_t>(&m_values[at].llVal);
        m_result = &m_values[at];
    }

    // Moves the result out; an empty value when there is none.
    VARIANT DetachResult() { return m_result ? std::exchange(*m_result, {}) : VARIANT{}; }

    const std::uintptr_t (&words() const)[kMostParameters] { return m_words; }

private:
    HRESULT TakePlace(std::size_t at, VARTYPE type, const VARIANT& argument)
    {
        if (!(argument.vt & VT_BYREF) || Fixed(argument.vt & ~VT_BYREF) != Fixed(type)) {
            return DISP_E_TYPEMISMATCH;
        }
        m_words[at] = reinterpret_cast<std::uintptr_t>(argument.byref);
        return m_words[at] ? S_OK : E_POINTER;
    }

    static int Fixed(int type)
    {
        if (type == VT_INT) return VT_I4;
        return type == VT_UINT ? VT_UI4 : type;
    }

    static std::uintptr_t WordOf(const VARIANT& value)
    {
        std::uintptr_t word = 0;
        std::memcpy(&word, &value.llVal, std::min(SizeOf(value.vt), sizeof(word)));
        return word;
    }

    std::array<VARIANT, kMostParameters> m_values{};
    std::uintptr_t m_words[kMostParameters] = {};
    VARIANT* m_result = nullptr;
};

bool NamesPut(const DISPPARAMS& arguments)
{
    return arguments.cNamedArgs == 1 && arguments.rgdispidNamedArgs[0] == DISPID_PROPERTYPUT;
}

const Member* FindMember(const TypeDescription& type, DISPID id, WORD flags)
{
    const auto found = std::ranges::find_if(type.members, [&](const Member& member) {
        return member.id == id && (member.kind & flags) != 0;
    });
    return found != type.members.end() ? &*found : nullptr;
}

// Finds the argument for parameter number `at` in DISPPARAMS. The named arguments come first, in
// any order; the others follow in reverse order.
HRESULT PlaceOf(const DISPPARAMS& arguments, UINT at, bool put, UINT& place)
{
    const UINT named = put ? 0 : arguments.cNamedArgs;
    for (UINT i = 0; i < named; ++i) {
        if (arguments.rgdispidNamedArgs[i] != static_cast<DISPID>(at)) continue;
        place = i;
        return S_OK;
    }
    if (at >= arguments.cArgs - named) return DISP_E_PARAMNOTOPTIONAL;
    place = arguments.cArgs - 1 - at;
    return S_OK;
}

}  // namespace

// Every parameter is a word: a number of up to 64 bits, or a pointer. A member that takes fewer
// than four ignores the others.
HRESULT CallSlot(void* instance, int slot, const std::uintptr_t (&words)[4])
{
    using Slot = HRESULT (*)(void*, std::uintptr_t, std::uintptr_t, std::uintptr_t, std::uintptr_t);
    void** const table = *static_cast<void***>(instance);
    const auto member = reinterpret_cast<Slot>(table[slot]);
    return member(instance, words[0], words[1], words[2], words[3]);
}

HRESULT FindNames(const TypeDescription& type, LPOLESTR* names, UINT count, DISPID* ids)
{
    if (!names || !ids || count == 0) return E_INVALIDARG;
    std::fill_n(ids, count, DISPID_UNKNOWN);
    HRESULT result = S_OK;
    const Member* member = nullptr;
    for (const Member& known : type.members) {
        if (!SameName(known.name, names[0])) continue;
        if (!member) member = &known;
    }
    if (!member) return DISP_E_UNKNOWNNAME;
    ids[0] = member->id;
    for (UINT i = 1; i < count; ++i) {
        const auto& parameters = member->parameters;
        const auto found = std::ranges::find_if(
            parameters, [&](const Parameter& p) { return SameName(p.name, names[i]); });
        if (found == parameters.end()) {
            result = DISP_E_UNKNOWNNAME;
        } else {
            ids[i] = static_cast<DISPID>(found - parameters.begin());
        }
    }
    return result;
}

HRESULT InvokeSlot(const TypeDescription& type, void* instance, DISPID member, WORD flags,
                   DISPPARAMS* arguments, VARIANT* result, EXCEPINFO* exception, UINT* badArgument)
{
    if (!arguments) return E_INVALIDARG;
    const Member* called = FindMember(type, member, flags);
    if (!called || called->slot < 0) return DISP_E_MEMBERNOTFOUND;
    const bool put = called->kind == DISPATCH_PROPERTYPUT;
    if (put && !NamesPut(*arguments)) return DISP_E_PARAMNOTOPTIONAL;
    for (UINT i = 0; !put && i < arguments->cNamedArgs; ++i) {
        const DISPID named = arguments->rgdispidNamedArgs[i];
        if (named >= 0 && static_cast<std::size_t>(named) < called->parameters.size()) continue;
        if (badArgument) *badArgument = i;
        return DISP_E_PARAMNOTFOUND;
    }
    const auto& parameters = called->parameters;
    const auto taken = std::ranges::count_if(parameters, [](const auto& p) { return !p.retval; });
    if (arguments->cArgs != taken) return DISP_E_BADPARAMCOUNT;

    Arguments made;
    for (UINT at = 0; at < parameters.size(); ++at) {
        const Parameter& parameter = parameters[at];
        if (parameter.retval) {
            made.TakeResult(at, parameter.type.type);
            continue;
        }
        UINT place = 0;
        HRESULT fits = PlaceOf(*arguments, at, put, place);
        if (SUCCEEDED(fits)) fits = made.Take(at, parameter, arguments->rgvarg[place]);
        if (FAILED(fits)) {
            if (badArgument) *badArgument = place;
            return fits;
        }
    }
    const HRESULT returned = CallSlot(instance, called->slot, made.words());
    if (FAILED(returned)) {
        if (exception) *exception = {};
        if (exception) exception->scode = returned;
        return kException;
    }
    VARIANT value = made.DetachResult();
    if (result) {
        *result = value;
    } else {
        VariantClear(&value);
    }
    return S_OK;
}

}  // namespace virtual_pc
