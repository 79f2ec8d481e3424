#include "platform/virtual/com/proxy.h"

#include <utility>
#include <vector>

#include "platform/virtual/com/member_proxy.h"
#include "platform/virtual/com/type_info.h"
#include "platform/virtual/registry/registry.h"

namespace virtual_pc {
namespace {

Function fn_query_interface{"IUnknown::QueryInterface", Failing::hresult};
Function fn_get_type_info_count{"IDispatch::GetTypeInfoCount", Failing::hresult};
Function fn_get_type_info{"IDispatch::GetTypeInfo", Failing::hresult};
Function fn_get_ids_of_names{"IDispatch::GetIDsOfNames", Failing::hresult};
Function fn_invoke{"IDispatch::Invoke", Failing::hresult};
Function fn_enum_connection_points{"EnumConnectionPoints", Failing::hresult};
Function fn_find_connection_point{"FindConnectionPoint", Failing::hresult};
Function fn_get_connection_interface{"GetConnectionInterface", Failing::hresult};
Function fn_get_container{"GetConnectionPointContainer", Failing::hresult};
Function fn_advise{"Advise", Failing::hresult};
Function fn_unadvise{"Unadvise", Failing::hresult};
Function fn_enum_connections{"EnumConnections", Failing::hresult};
Function fn_next{"IEnum::Next", Failing::hresult};
Function fn_skip{"IEnum::Skip", Failing::hresult};
Function fn_reset{"IEnum::Reset", Failing::hresult};
Function fn_clone{"IEnum::Clone", Failing::hresult};
Function fn_create_instance{"IClassFactory::CreateInstance", Failing::hresult};
Function fn_lock_server{"LockServer", Failing::hresult};

// The arguments and the results of a remote call. Both sides share it, as the caller may end while
// the call still runs.
struct Parcel
{
    std::vector<TravellingValue> values;
    std::vector<std::wstring> names;
    std::vector<DISPID> numbers;
    std::vector<ExportedInterface> objects;
    std::vector<DWORD> cookies;
    TypeInLibrary type;
    TravellingValue result;
    SCODE scode = 0;
    GUID guid{};
    DWORD number = 0;
};

template <class Interface>
class Facet : public Interface, public ProxyFacet
{
public:
    Facet(Proxy& owner, REFIID id) : ProxyFacet(owner), m_id(id) {}

    HRESULT QueryInterface(REFIID id, void** object) override { return proxy().Query(id, object); }
    ULONG AddRef() override { return proxy().AddRef(); }
    ULONG Release() override { return proxy().Release(); }
    IUnknown* interface() override { return this; }

protected:
    // Runs `body` on the object itself, in its apartment, and returns what it returns.
    template <class Body>
    HRESULT Remote(Function& function, Body body)
    {
        const Boundary boundary;
        std::shared_ptr<Exported> object;
        if (const HRESULT begun = proxy().Begin(function, object); FAILED(begun)) return begun;
        return object->home->Send([object, id = m_id, body = std::move(body)]() -> HRESULT {
            Interface* target = nullptr;
            {
                const Hold hold(Machine::Current());
                target = static_cast<Interface*>(object->Find(id));
            }
            return target ? body(*target) : RPC_E_DISCONNECTED;
        });
    }

    // Remote for methods that return an interface: `body` stores the interface of the object's
    // apartment, and the caller gets one of its own apartment.
    template <class Given, class Body>
    HRESULT RemoteGiven(Function& function, REFIID id, Given** given, Body body)
    {
        if (!given) return E_POINTER;
        const Boundary boundary;
        *given = nullptr;
        const auto parcel = std::make_shared<Parcel>();
        parcel->objects.resize(1);
        const HRESULT result =
            Remote(function, [parcel, id, body = std::move(body)](Interface& target) {
                Given* own = nullptr;
                HRESULT done = body(target, &own);
                if (SUCCEEDED(done) && own) {
                    const HRESULT sent = ExportInterface(own, id, parcel->objects[0]);
                    own->Release();
                    if (FAILED(sent)) done = sent;
                }
                return done;
            });
        if (FAILED(result)) return result;
        const HRESULT come = ImportInterface(parcel->objects[0], reinterpret_cast<void**>(given));
        return FAILED(come) ? come : result;
    }

private:
    const IID m_id;
};

using UnknownFacet = Facet<IUnknown>;

class DispatchFacet final : public Facet<IDispatch>
{
public:
    using Facet::Facet;

    HRESULT GetTypeInfoCount(UINT* count) override
    {
        if (!count) return E_POINTER;
        const auto parcel = std::make_shared<Parcel>();
        const HRESULT result = Remote(fn_get_type_info_count, [parcel](IDispatch& target) {
            return target.GetTypeInfoCount(&parcel->number);
        });
        *count = parcel->number;
        return result;
    }

    // Type information has no proxy: each process gets an object of its own.
    HRESULT GetTypeInfo(UINT index, LCID locale, ITypeInfo** info) override
    {
        if (!info) return E_POINTER;
        *info = nullptr;
        const auto parcel = std::make_shared<Parcel>();
        const HRESULT result = Remote(fn_get_type_info, [=](IDispatch& target) {
            ITypeInfo* own = nullptr;
            const HRESULT done = target.GetTypeInfo(index, locale, &own);
            if (FAILED(done)) return done;
            parcel->type = TypeOf(own);
            own->Release();
            return done;
        });
        if (FAILED(result)) return result;
        Machine& machine = Machine::Current();
        const Hold hold(machine);
        *info = HandOutTypeInfo(machine, parcel->type);
        return result;
    }

    HRESULT GetIDsOfNames(REFIID reserved, LPOLESTR* names, UINT count, LCID locale,
                          DISPID* ids) override
    {
        const auto parcel = std::make_shared<Parcel>();
        parcel->names.assign(names, names + count);
        parcel->numbers.assign(count, DISPID_UNKNOWN);
        const HRESULT result =
            Remote(fn_get_ids_of_names, [parcel, reserved, locale](IDispatch& target) {
                std::vector<LPOLESTR> texts;
                for (std::wstring& name : parcel->names) texts.push_back(name.data());
                return target.GetIDsOfNames(reserved, texts.data(), static_cast<UINT>(texts.size()),
                                            locale, parcel->numbers.data());
            });
        std::copy(parcel->numbers.begin(), parcel->numbers.end(), ids);
        return result;
    }

    HRESULT Invoke(DISPID member, REFIID reserved, LCID locale, WORD flags, DISPPARAMS* arguments,
                   VARIANT* result, EXCEPINFO* exception, UINT* bad_argument) override
    {
        if (!arguments) return E_POINTER;
        const auto parcel = std::make_shared<Parcel>();
        parcel->values.resize(arguments->cArgs);
        for (UINT i = 0; i < arguments->cArgs; ++i) {
            const HRESULT packed = parcel->values[i].Pack(arguments->rgvarg[i]);
            if (FAILED(packed)) return packed;
        }
        parcel->numbers.assign(arguments->rgdispidNamedArgs,
                               arguments->rgdispidNamedArgs + arguments->cNamedArgs);
        const bool wants_result = result != nullptr;
        const HRESULT done = Remote(fn_invoke, [=](IDispatch& target) {
            return InvokeThere(target, *parcel, member, reserved, locale, flags, wants_result);
        });
        if (exception && done == kException) {
            *exception = {};
            exception->scode = parcel->scode;
        }
        if (bad_argument) *bad_argument = parcel->number;
        if (FAILED(done)) return done;
        for (UINT i = 0; i < arguments->cArgs; ++i) {
            if (!parcel->values[i].by_reference()) continue;
            const HRESULT back = parcel->values[i].WriteBack(arguments->rgvarg[i]);
            if (FAILED(back)) return back;
        }
        std::deque<VARIANT> places;
        return result ? parcel->result.Unpack(*result, places) : done;
    }

private:
    static constexpr auto kException = static_cast<HRESULT>(0x80020009u);  // DISP_E_EXCEPTION

    static HRESULT InvokeThere(IDispatch& target, Parcel& parcel, DISPID member, REFIID reserved,
                               LCID locale, WORD flags, bool wants_result)
    {
        // What is unpacked in the object's process, cleared on every return.
        struct Made
        {
            std::vector<VARIANT> arguments;
            std::deque<VARIANT> places;
            VARIANT result{};
            ~Made()
            {
                for (VARIANT& value : arguments) VariantClear(&value);
                for (VARIANT& value : places) VariantClear(&value);
                VariantClear(&result);
            }
        } made;
        made.arguments.resize(parcel.values.size());
        for (std::size_t i = 0; i < made.arguments.size(); ++i) {
            const HRESULT come = parcel.values[i].Unpack(made.arguments[i], made.places);
            if (FAILED(come)) return come;
        }
        DISPPARAMS parameters{made.arguments.data(), parcel.numbers.data(),
                              static_cast<UINT>(made.arguments.size()),
                              static_cast<UINT>(parcel.numbers.size())};
        EXCEPINFO exception{};
        const HRESULT done =
            target.Invoke(member, reserved, locale, flags, &parameters,
                          wants_result ? &made.result : nullptr, &exception, &parcel.number);
        parcel.scode = exception.scode;
        if (FAILED(done)) return done;
        for (std::size_t i = 0; i < made.arguments.size(); ++i) {
            if (!parcel.values[i].by_reference()) continue;
            parcel.values[i] = {};
            const HRESULT packed = parcel.values[i].Pack(made.arguments[i]);
            if (FAILED(packed)) return packed;
        }
        return parcel.result.Pack(made.result);
    }
};

class ContainerFacet final : public Facet<IConnectionPointContainer>
{
public:
    using Facet::Facet;

    HRESULT EnumConnectionPoints(IEnumConnectionPoints** points) override
    {
        return RemoteGiven(fn_enum_connection_points, IID_IEnumConnectionPoints, points,
                           [](IConnectionPointContainer& target, IEnumConnectionPoints** own) {
                               return target.EnumConnectionPoints(own);
                           });
    }

    HRESULT FindConnectionPoint(REFIID id, IConnectionPoint** point) override
    {
        return RemoteGiven(fn_find_connection_point, IID_IConnectionPoint, point,
                           [id](IConnectionPointContainer& target, IConnectionPoint** own) {
                               return target.FindConnectionPoint(id, own);
                           });
    }
};

class PointFacet final : public Facet<IConnectionPoint>
{
public:
    using Facet::Facet;

    HRESULT GetConnectionInterface(IID* id) override
    {
        const auto parcel = std::make_shared<Parcel>();
        const HRESULT result =
            Remote(fn_get_connection_interface, [parcel](IConnectionPoint& target) {
                return target.GetConnectionInterface(&parcel->guid);
            });
        *id = parcel->guid;
        return result;
    }

    HRESULT GetConnectionPointContainer(IConnectionPointContainer** container) override
    {
        return RemoteGiven(fn_get_container, IID_IConnectionPointContainer, container,
                           [](IConnectionPoint& target, IConnectionPointContainer** own) {
                               return target.GetConnectionPointContainer(own);
                           });
    }

    HRESULT Advise(IUnknown* sink, DWORD* cookie) override
    {
        if (!cookie) return E_POINTER;
        const auto parcel = std::make_shared<Parcel>();
        parcel->objects.resize(1);
        const HRESULT sent = ExportInterface(sink, IID_IUnknown, parcel->objects[0]);
        if (FAILED(sent)) return sent;
        const HRESULT result = Remote(fn_advise, [parcel](IConnectionPoint& target) {
            IUnknown* there = nullptr;
            const HRESULT come =
                ImportInterface(parcel->objects[0], reinterpret_cast<void**>(&there));
            if (FAILED(come)) return come;
            const HRESULT done = target.Advise(there, &parcel->number);
            if (there) there->Release();
            return done;
        });
        *cookie = parcel->number;
        return result;
    }

    HRESULT Unadvise(DWORD cookie) override
    {
        return Remote(fn_unadvise,
                      [cookie](IConnectionPoint& target) { return target.Unadvise(cookie); });
    }

    HRESULT EnumConnections(IEnumConnections** connections) override
    {
        return RemoteGiven(fn_enum_connections, IID_IEnumConnections, connections,
                           [](IConnectionPoint& target, IEnumConnections** own) {
                               return target.EnumConnections(own);
                           });
    }
};

// Take apart an element of an enumerator for marshaling, and put it together again.
IUnknown* ToWire(const CONNECTDATA& element, DWORD& cookie)
{
    cookie = element.dwCookie;
    return element.pUnk;
}
IUnknown* ToWire(IConnectionPoint* element, DWORD&) { return element; }
const IID& WireInterface(const CONNECTDATA*) { return IID_IUnknown; }
const IID& WireInterface(IConnectionPoint* const*) { return IID_IConnectionPoint; }
void FromWire(void* object, DWORD cookie, CONNECTDATA& element)
{
    element = {static_cast<IUnknown*>(object), cookie};
}
void FromWire(void* object, DWORD, IConnectionPoint*& element)
{
    element = static_cast<IConnectionPoint*>(static_cast<IUnknown*>(object));
}

template <class Enumerator, const IID& id, class Element>
class EnumeratorFacet final : public Facet<Enumerator>
{
public:
    using Facet<Enumerator>::Facet;

    HRESULT Next(ULONG count, Element* elements, ULONG* given) override
    {
        if (!elements || (!given && count != 1)) return E_POINTER;
        const auto parcel = std::make_shared<Parcel>();
        const HRESULT result = this->Remote(fn_next, [parcel, count](Enumerator& target) {
            return NextThere(target, *parcel, count);
        });
        if (given) *given = 0;
        if (FAILED(result)) return result;
        for (std::size_t i = 0; i < parcel->objects.size(); ++i) {
            void* object = nullptr;
            const HRESULT come = ImportInterface(parcel->objects[i], &object);
            if (FAILED(come)) return come;
            FromWire(object, parcel->cookies[i], elements[i]);
            if (given) ++*given;
        }
        return result;
    }

    HRESULT Skip(ULONG count) override
    {
        return this->Remote(fn_skip, [count](Enumerator& target) { return target.Skip(count); });
    }

    HRESULT Reset() override
    {
        return this->Remote(fn_reset, [](Enumerator& target) { return target.Reset(); });
    }

    HRESULT Clone(Enumerator** copy) override
    {
        return this->RemoteGiven(fn_clone, id, copy, [](Enumerator& target, Enumerator** own) {
            return target.Clone(own);
        });
    }

private:
    static HRESULT NextThere(Enumerator& target, Parcel& parcel, ULONG count)
    {
        std::vector<Element> own(count);
        ULONG given = 0;
        HRESULT done = target.Next(count, own.data(), &given);
        if (FAILED(done)) return done;
        parcel.objects.resize(given);
        parcel.cookies.resize(given);
        for (ULONG i = 0; i < given; ++i) {
            IUnknown* const object = ToWire(own[i], parcel.cookies[i]);
            const HRESULT sent =
                ExportInterface(object, WireInterface(own.data()), parcel.objects[i]);
            object->Release();
            if (FAILED(sent)) done = sent;
        }
        return done;
    }
};

using ConnectionsFacet = EnumeratorFacet<IEnumConnections, IID_IEnumConnections, CONNECTDATA>;
using PointsFacet =
    EnumeratorFacet<IEnumConnectionPoints, IID_IEnumConnectionPoints, IConnectionPoint*>;

class ClassFacet final : public Facet<IClassFactory>
{
public:
    using Facet::Facet;

    HRESULT CreateInstance(IUnknown* outer, REFIID id, void** object) override
    {
        if (outer) return CLASS_E_NOAGGREGATION;
        return RemoteGiven(fn_create_instance, id, reinterpret_cast<IUnknown**>(object),
                           [id](IClassFactory& target, IUnknown** own) {
                               return target.CreateInstance(nullptr, id,
                                                            reinterpret_cast<void**>(own));
                           });
    }

    HRESULT LockServer(BOOL lock) override
    {
        return Remote(fn_lock_server,
                      [lock](IClassFactory& target) { return target.LockServer(lock); });
    }
};

template <class T>
std::unique_ptr<ProxyFacet> Make(Proxy& proxy, REFIID id)
{
    return std::make_unique<T>(proxy, id);
}

using FacetMaker = std::unique_ptr<ProxyFacet> (*)(Proxy& proxy, REFIID id);

const struct
{
    const IID& id;
    FacetMaker make;
} kFacets[] = {
    {IID_IUnknown, Make<UnknownFacet>},
    {IID_IDispatch, Make<DispatchFacet>},
    {IID_IConnectionPointContainer, Make<ContainerFacet>},
    {IID_IConnectionPoint, Make<PointFacet>},
    {IID_IEnumConnections, Make<ConnectionsFacet>},
    {IID_IEnumConnectionPoints, Make<PointsFacet>},
    {IID_IClassFactory, Make<ClassFacet>},
};

// Makes an interface's proxy; null where its calls cannot be marshaled. With the machine held.
FacetMaker MakerOf(Machine& machine, REFIID id)
{
    for (const auto& known : kFacets) {
        if (known.id == id) return known.make;
    }
    const auto way = machine.registry.GetString(
        LR"(HKCR\Interface\{)" + FormatGuid(id) + LR"(}\ProxyStubClsid32)", L"");
    if (way && SameName(*way, kByTypeLibrary)) return MakeMemberProxy;
    return way && SameName(*way, kByDispatch) ? Make<DispatchFacet> : nullptr;
}

}  // namespace

Proxy::Proxy(std::shared_ptr<Exported> object, std::shared_ptr<Apartment> apartment)
    : m_object(std::move(object)), m_apartment(std::move(apartment))
{
}

void Proxy::Closed()
{
    std::erase_if(m_apartment->proxies, [this](const auto& known) { return known.second == this; });
    m_object.reset();
}

HRESULT Proxy::Begin(Function& function, std::shared_ptr<Exported>& object)
{
    Operation call(function);
    if (const HRESULT refused = call.Refused(CheckUsable(call)); FAILED(refused)) return refused;
    if (call.thread.membership.apartment != m_apartment) return RPC_E_WRONG_THREAD;
    object = m_object;
    return S_OK;
}

HRESULT Proxy::Query(REFIID id, void** interface)
{
    if (!interface) return E_POINTER;
    *interface = nullptr;
    const Boundary boundary;
    std::shared_ptr<Exported> object;
    if (const HRESULT begun = Begin(fn_query_interface, object); FAILED(begun)) return begun;
    FacetMaker make = nullptr;
    bool known = false;
    {
        const Hold hold(Machine::Current());
        make = MakerOf(Machine::Current(), id);
        known = object->Find(id) != nullptr;
    }
    if (!make) return E_NOINTERFACE;
    if (!known) {
        const HRESULT asked =
            object->home->Send([object, wanted = id] { return object->Learn(wanted); });
        if (FAILED(asked)) return asked;
    }
    const Hold hold(Machine::Current());
    auto& facet = m_facets[id];
    if (!facet) facet = make(*this, id);
    if (!facet) return E_NOINTERFACE;
    AddRef();
    *interface = facet->interface();
    return S_OK;
}

HRESULT ImportProxy(const ExportedInterface& exported, Apartment& here, void** interface)
{
    Proxy* proxy = nullptr;
    {
        Machine& machine = Machine::Current();
        const Hold hold(machine);
        Proxy*& known = here.proxies[exported.object.get()];
        if (known) {
            known->AddRef();
        } else {
            known = HandOut<Proxy>(machine, exported.object, here.shared_from_this());
        }
        proxy = known;
    }
    const HRESULT result = proxy->Query(exported.id, interface);
    proxy->Release();
    return result;
}

}  // namespace virtual_pc
