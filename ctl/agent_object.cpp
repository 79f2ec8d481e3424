#include "ctl/agent_object.h"

namespace {

VARIANT NumberArgument(LONG number)
{
    VARIANT argument{};
    argument.vt = VT_I4;
    argument.lVal = number;
    return argument;
}

// An argument through which a call returns a value of this type.
VARIANT PlaceArgument(VARTYPE type, void* place)
{
    VARIANT argument{};
    argument.vt = static_cast<VARTYPE>(VT_BYREF | type);
    argument.byref = place;
    return argument;
}

}  // namespace

AgentObject::AgentObject() : m_result(CoInitialize(nullptr))
{
    m_in_apartment = SUCCEEDED(m_result);
    if (m_in_apartment) {
        m_result = CoCreateInstance(CLSID_HOLVAgentApi, nullptr, CLSCTX_LOCAL_SERVER, IID_IDispatch,
                                    reinterpret_cast<void**>(m_object.Receive()));
    }
}

AgentObject::~AgentObject()
{
    m_object.Reset();
    if (m_in_apartment) CoUninitialize();
}

HRESULT AgentObject::Invoke(DISPID member, WORD how, std::vector<VARIANT> reversed,
                            VARIANT* result) const
{
    DISPID put = DISPID_PROPERTYPUT;
    DISPPARAMS arguments{reversed.data(), nullptr, static_cast<UINT>(reversed.size()), 0};
    if (how == DISPATCH_PROPERTYPUT) {
        arguments.rgdispidNamedArgs = &put;
        arguments.cNamedArgs = 1;
    }
    constexpr IID kNoId{};
    constexpr LCID kAnyLocale = 0;
    return m_object.Get()->Invoke(member, kNoId, kAnyLocale, how, &arguments, result, nullptr,
                                  nullptr);
}

HRESULT AgentObject::SetParam(HOLVAgentFeatureEnum feature, LONG value) const
{
    return Invoke(DISPID_SetNeverSleepParam, DISPATCH_METHOD,
                  {NumberArgument(value), NumberArgument(feature)});
}

HRESULT AgentObject::GetParam(HOLVAgentFeatureEnum feature, LONG* value) const
{
    return Invoke(DISPID_GetNeverSleepParam, DISPATCH_METHOD,
                  {PlaceArgument(VT_I4, value), NumberArgument(feature)});
}

HRESULT AgentObject::SetInterval(UINT start, UINT end) const
{
    return Invoke(
        DISPID_SetDoNotDisturbTimeInterval, DISPATCH_METHOD,
        {NumberArgument(static_cast<LONG>(end)), NumberArgument(static_cast<LONG>(start))});
}

HRESULT AgentObject::GetInterval(UINT* start, UINT* end) const
{
    return Invoke(DISPID_GetDoNotDisturbTimeInterval, DISPATCH_METHOD,
                  {PlaceArgument(VT_UI4, end), PlaceArgument(VT_UI4, start)});
}

HRESULT AgentObject::SetEventCode(HOLVAgentEventCodeEnum code) const
{
    return Invoke(DISPID_NeverSleepEventCode, DISPATCH_PROPERTYPUT, {NumberArgument(code)});
}

HRESULT AgentObject::GetEventCode(HOLVAgentEventCodeEnum* code) const
{
    VARIANT value{};
    const HRESULT result = Invoke(DISPID_NeverSleepEventCode, DISPATCH_PROPERTYGET, {}, &value);
    *code = static_cast<HOLVAgentEventCodeEnum>(value.lVal);
    return result;
}
