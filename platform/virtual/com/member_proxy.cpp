#include "platform/virtual/com/member_proxy.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <utility>
#include <vector>

#include "platform/owned.h"
#include "platform/virtual/com/type_info.h"
#include "platform/virtual/registry/registry.h"

namespace virtual_pc {
namespace {

Function fn_call_member{"call of a member", Failing::hresult};

using MemberWord = std::uintptr_t;

// What a compiler makes of a dual interface: IDispatch's slots, then one for each member. A member
// that takes fewer words than four leaves the others undefined.
class MemberSlots : public IDispatch
{
public:
#define MEMBER_SLOT(number) \
    virtual HRESULT Slot##number(MemberWord, MemberWord, MemberWord, MemberWord) = 0;
#define MEMBER_SLOTS(SLOT) \
    SLOT(7) SLOT(8) SLOT(9) SLOT(10) SLOT(11) SLOT(12) SLOT(13) SLOT(14) SLOT(15) SLOT(16)
    MEMBER_SLOTS(MEMBER_SLOT)

protected:
    ~MemberSlots() = default;
};

// One call's values on their way, which both sides share: the caller may end while it still runs.
struct MemberCall
{
    TypeInLibrary type;
    const Member* member = nullptr;
    std::vector<TravellingValue> values;
};

// What is unpacked in the object's process, cleared when the call has returned.
struct MemberArguments
{
    ~MemberArguments()
    {
        for (VARIANT& value : values) VariantClear(&value);
        for (VARIANT& value : places) VariantClear(&value);
    }

    std::vector<VARIANT> values;
    std::deque<VARIANT> places;
};

// A word of the caller's as the value of its parameter. Nothing of the caller's is given to the
// object through a parameter that only returns.
VARIANT ValueOf(const Parameter& parameter, MemberWord word)
{
    VARIANT value{};
    value.vt = parameter.type.type;
    if (parameter.type.pointer) {
        value.vt = static_cast<VARTYPE>(VT_BYREF | value.vt);
        value.byref = reinterpret_cast<void*>(word);
    } else {
        value.ullVal = word;
    }
    return value;
}

HRESULT CallMemberThere(IDispatch& target, MemberCall& call)
{
    MemberArguments made;
    made.values.resize(call.values.size());
    MemberWord words[4] = {};
    for (std::size_t i = 0; i < made.values.size(); ++i) {
        const HRESULT come = call.values[i].Unpack(made.values[i], made.places);
        if (FAILED(come)) return come;
        words[i] = made.values[i].ullVal;
    }
    const HRESULT done = CallSlot(&target, call.member->slot, words);
    for (std::size_t i = 0; i < made.values.size(); ++i) {
        if (!call.values[i].by_reference()) continue;
        call.values[i] = {};
        const HRESULT packed = call.values[i].Pack(made.values[i]);
        if (FAILED(packed)) return packed;
    }
    return done;
}

class MemberFacet final : public MemberSlots, public ProxyFacet
{
public:
    MemberFacet(Proxy& owner, REFIID id, TypeInLibrary type)
        : ProxyFacet(owner), m_id(id), m_type(std::move(type))
    {
    }

    HRESULT QueryInterface(REFIID id, void** object) override { return proxy().Query(id, object); }
    ULONG AddRef() override { return proxy().AddRef(); }
    ULONG Release() override { return proxy().Release(); }
    IUnknown* interface() override { return this; }

    HRESULT GetTypeInfoCount(UINT* count) override
    {
        return ByDispatch([=](IDispatch& own) { return own.GetTypeInfoCount(count); });
    }
    HRESULT GetTypeInfo(UINT index, LCID locale, ITypeInfo** info) override
    {
        return ByDispatch([=](IDispatch& own) { return own.GetTypeInfo(index, locale, info); });
    }
    HRESULT GetIDsOfNames(REFIID id, LPOLESTR* names, UINT count, LCID locale, DISPID* ids) override
    {
        return ByDispatch(
            [=, &id](IDispatch& own) { return own.GetIDsOfNames(id, names, count, locale, ids); });
    }
    HRESULT Invoke(DISPID member, REFIID id, LCID locale, WORD flags, DISPPARAMS* arguments,
                   VARIANT* result, EXCEPINFO* exception, UINT* bad) override
    {
        return ByDispatch([=, &id](IDispatch& own) {
            return own.Invoke(member, id, locale, flags, arguments, result, exception, bad);
        });
    }

#define CALL_MEMBER_SLOT(number)                                                          \
    HRESULT Slot##number(MemberWord a, MemberWord b, MemberWord c, MemberWord d) override \
    {                                                                                     \
        return CallMember(number, {a, b, c, d});                                          \
    }
    MEMBER_SLOTS(CALL_MEMBER_SLOT)

private:
    template <class Body>
    HRESULT ByDispatch(const Body& body)
    {
        OwnedInterface<IDispatch> dispatch;
        const HRESULT found =
            proxy().Query(IID_IDispatch, reinterpret_cast<void**>(dispatch.Receive()));
        return FAILED(found) ? found : body(*dispatch.Get());
    }

    HRESULT CallMember(int slot, const std::vector<MemberWord>& words)
    {
        const Boundary boundary;
        std::shared_ptr<Exported> object;
        if (const HRESULT begun = proxy().Begin(fn_call_member, object); FAILED(begun)) {
            return begun;
        }
        const auto call = std::make_shared<MemberCall>();
        call->type = m_type;
        const auto& members = m_type.description().members;
        const auto called = std::ranges::find(members, slot, &Member::slot);
        if (called == members.end()) return E_NOTIMPL;
        call->member = &*called;
        std::vector<VARIANT> own;
        for (const Parameter& parameter : called->parameters) {
            own.push_back(ValueOf(parameter, words[own.size()]));
            const HRESULT packed = call->values.emplace_back().Pack(own.back());
            if (FAILED(packed)) return packed;
        }
        const HRESULT done = object->home->Send([object, call, id = m_id]() -> HRESULT {
            IUnknown* target = nullptr;
            {
                const Hold hold(Machine::Current());
                target = object->Find(id);
            }
            if (!target) return RPC_E_DISCONNECTED;
            return CallMemberThere(static_cast<IDispatch&>(*target), *call);
        });
        for (std::size_t i = 0; i < own.size() && SUCCEEDED(done); ++i) {
            if (!call->values[i].by_reference()) continue;
            const HRESULT back = call->values[i].WriteBack(own[i]);
            if (FAILED(back)) return back;
        }
        return done;
    }

    const IID m_id;
    const TypeInLibrary m_type;
};

// The library that the registry names for an interface; null for none.
std::shared_ptr<const TypeLibrary> LibraryOf(Machine& machine, REFIID id)
{
    const Registry& registry = machine.registry;
    const std::wstring interface = LR"(HKCR\Interface\{)" + FormatGuid(id) + LR"(}\TypeLib)";
    const auto library = registry.GetString(interface, L"");
    const auto version = registry.GetString(interface, L"Version");
    if (!library || !version) return nullptr;
    const auto key =
        registry.FindKey(Registry::Parse(LR"(HKCR\TypeLib\)" + *library + L"\\" + *version));
    if (!key) return nullptr;
    // Any language does.
    for (const auto& [name, language] : key->keys) {
        const auto path = registry.GetString(
            LR"(HKCR\TypeLib\)" + *library + L"\\" + *version + L"\\" + name + LR"(\win64)", L"");
        if (path) return machine.com.type_libraries.Find(*path);
    }
    return nullptr;
}

}  // namespace

std::unique_ptr<ProxyFacet> MakeMemberProxy(Proxy& proxy, REFIID id)
{
    const auto library = LibraryOf(Machine::Current(), id);
    if (!library) return nullptr;
    const auto type = std::ranges::find(library->types, id, &TypeDescription::guid);
    if (type == library->types.end()) return nullptr;
    return std::make_unique<MemberFacet>(
        proxy, id, TypeInLibrary{library, static_cast<std::size_t>(type - library->types.begin())});
}

}  // namespace virtual_pc
