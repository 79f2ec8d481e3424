// Calls of the control interface by number, with arguments of any number, type and value, in the
// service's own program, on one PC for all inputs: each is answered, no call is misused, and the
// object still answers afterwards. An input is a list of calls: the member, the flags, the
// arguments, the names.

#include <array>
#include <filesystem>
#include <vector>

#include "api/agent_api.h"
#include "api/holv_agent_api.h"
#include "api/type_library.h"
#include "fuzz/bytes.h"
#include "fuzz/input.h"
#include "platform/automation.h"
#include "platform/owned.h"
#include "platform/virtual/com/com.h"
#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/process.h"
#include "settings/settings_store.h"
#include "state/global_events.h"
#include "tests/fresh_service.h"

using namespace virtual_pc;

namespace {

// Arguments, and what those that are addresses point to.
class Arguments
{
public:
    Arguments(Bytes& bytes, IDispatch* object) : m_object(object)
    {
        m_count = bytes.Next() % (kMost + 1);
        m_named = bytes.Next() % (kMost + 1);
        for (std::size_t i = 0; i < m_count; ++i) {
            Draw(m_values.at(i), bytes);
            const auto type = bytes.Value<VARTYPE>();
            if ((type & VT_BYREF) == 0) continue;
            // The caller vouches for an address: it holds what the type says.
            m_places.at(i) = m_values.at(i);
            m_values.at(i).vt = static_cast<VARTYPE>(m_places.at(i).vt | VT_BYREF);
            m_values.at(i).byref = (type & VT_VARIANT) != 0 ? static_cast<void*>(&m_places.at(i))
                                                            : &m_places.at(i).llVal;
            if ((type & VT_VARIANT) != 0) m_values.at(i).vt = VT_VARIANT | VT_BYREF;
        }
        for (DISPID& name : m_names) name = static_cast<signed char>(bytes.Next());
    }
    ~Arguments()
    {
        for (std::size_t i = 0; i < kMost; ++i) {
            VARIANT& owned = (m_values.at(i).vt & VT_BYREF) != 0 ? m_places.at(i) : m_values.at(i);
            if (owned.vt == VT_BSTR) SysFreeString(owned.bstrVal);
        }
    }
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;

    DISPPARAMS Params()
    {
        return {m_values.data(), m_names.data(), static_cast<UINT>(m_count),
                static_cast<UINT>(m_named)};
    }

private:
    static constexpr std::size_t kMost = 4;

    void Draw(VARIANT& value, Bytes& bytes)
    {
        value.vt = bytes.Next() % 40;
        value.llVal = bytes.Value<LONGLONG>();
        if (value.vt == VT_BSTR) {
            const std::vector<BYTE> text = bytes.Take(bytes.Next() % 16);
            value.bstrVal = SysAllocString(std::wstring(text.begin(), text.end()).c_str());
        } else if (value.vt == VT_DISPATCH || value.vt == VT_UNKNOWN) {
            value.pdispVal = m_object;
        } else if (value.vt == VT_VARIANT || value.vt > VT_HRESULT) {
            value.byref = nullptr;  // an array, a record or the like, of which there is none
        }
    }

    IDispatch* m_object;
    std::size_t m_count = 0;
    std::size_t m_named = 0;
    std::array<VARIANT, kMost> m_values{};
    std::array<VARIANT, kMost> m_places{};
    std::array<DISPID, kMost> m_names{};
};

int Serve(Bytes bytes)
{
    CoInitialize(nullptr);
    RegInit();
    createGlobalEvents();
    {
        OwnedInterface<IHOLVAgent> object;
        HOLVAgentApi::Create(nullptr, IID_IHOLVAgent, reinterpret_cast<void**>(object.Receive()));
        while (!bytes.empty()) {
            const DISPID member = static_cast<signed char>(bytes.Next());
            const WORD flags = bytes.Next();
            Arguments arguments(bytes, object.Get());
            DISPPARAMS params = arguments.Params();
            VARIANT result{};
            UINT bad = 0;
            object.Get()->Invoke(member, IID_NULL, LOCALE_USER_DEFAULT, flags, &params,
                                 (flags & 0x80) != 0 ? nullptr : &result, nullptr, &bad);
            VariantClear(&result);
        }
        LONG state = 0;
        if (object.Get()->GetNeverSleepParam(E_HOLV_STATE, &state) != S_OK) RingAlarm("no answer");
    }
    closeGlobalEvents();
    CoUninitialize();
    return 0;
}

class Ground
{
public:
    Ground()
    {
        pc.com.type_libraries.Add(
            Image{}.path, std::filesystem::path(HOLV_SOURCE_DIR) / "api" / "HOLVAgentLib.idl");
        pc.RunUntilEnd(pc.Start([] {
            if (RegisterAgentTypeLibrary(false) != S_OK) RingAlarm("the library is not registered");
            return 0;
        }));
    }

    Machine pc;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Ground ground;
    Machine& pc = ground.pc;
    FreshService(true);
    pc.RunUntilEnd(pc.Start([data, size] { return Serve(Bytes(TextOf(data, size))); }));
    for (const std::string& misuse : pc.misuses()) RingAlarm(misuse);
    return 0;
}
