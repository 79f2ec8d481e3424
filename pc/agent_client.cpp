#include "pc/agent_client.h"

#include <algorithm>
#include <functional>
#include <map>

#include "api/agent_api.h"
#include "platform/owned.h"
#include "platform/virtual/com/apartment.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/core/thread.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

constexpr const wchar_t* kProgId = L"HOLVAgentLib.HOLVAgentLib";
constexpr UINT kWork = WM_USER + 1;
// Longer than the two minutes that a server has to start.
constexpr Duration kPatience = 5min;

std::wstring Hexadecimal(HRESULT result)
{
    wchar_t text[12];
    std::swprintf(text, std::size(text), L"0x%08X", static_cast<unsigned>(result));
    return text;
}

// A value as text; empty when it is not convertible.
std::wstring TextOf(const VARIANT& value)
{
    VARIANT text{};
    if (FAILED(VariantChangeType(&text, &value, 0, VT_BSTR))) return {};
    const OwnedAutomationString owned(text.bstrVal);
    return owned ? std::wstring(owned.Get()) : std::wstring();
}

template <class Interface>
void** ReceiveAny(OwnedInterface<Interface>& reference)
{
    return reinterpret_cast<void**>(reference.Receive());
}

}  // namespace

class Sink;

// The program: the state of its thread, and the way by which the driver gives it work.
struct AgentClient::Program
{
    struct Connected
    {
        std::wstring name;
        DWORD cookie;
    };

    Program(Machine& machine, std::wstring_view known_as);
    ~Program();

    int Run();
    void ServeMessages();
    // Runs `what` on the program's thread, and the machine until it is done. E_FAIL when it is not
    // done within kPatience.
    Answer Do(std::function<Answer()> what);

    HRESULT NeedObject();
    HRESULT Point(OwnedInterface<IConnectionPoint>& point);
    // `places` become output arguments, whose values end the answer.
    Answer Invoke(std::wstring_view member, WORD flags, std::vector<VARIANT> arguments,
                  std::vector<VARIANT> places = {});
    Answer Advise(const std::wstring& sink, SinkReaction reaction);
    Answer Unadvise(const std::wstring& sink);
    void Release();
    Answer Tell(const std::wstring& call, Answer answer) const;

    Machine& pc;
    const std::wstring name;
    Process* process = nullptr;

    // For the program's thread only.
    OwnedInterface<IDispatch> object;
    std::vector<Connected> connected;
    std::vector<std::unique_ptr<Sink>> sinks;  // the disconnected ones too

    // With the machine held.
    std::function<void()> work;
    bool done = true;
    std::map<std::wstring, std::wstring> heard;
};

// Called in the program's apartment. The program owns it, so references are not counted.
class Sink final : public IDispatch
{
public:
    Sink(AgentClient::Program& owner, std::wstring name, SinkReaction reaction)
        : m_owner(owner), m_name(std::move(name)), m_reaction(reaction)
    {
    }

    HRESULT QueryInterface(REFIID id, void** object) override
    {
        const bool known = IsEqualIID(id, IID_IUnknown) || IsEqualIID(id, IID_IDispatch) ||
                           IsEqualIID(id, DIID__HOLVAgentSinkEvent);
        *object = known ? this : nullptr;
        return known ? S_OK : E_NOINTERFACE;
    }
    ULONG AddRef() override { return 1; }
    ULONG Release() override { return 1; }

    HRESULT GetTypeInfoCount(UINT* count) override
    {
        *count = 0;
        return S_OK;
    }
    HRESULT GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }

    HRESULT Invoke(DISPID member, REFIID, LCID, WORD, DISPPARAMS* arguments, VARIANT*, EXCEPINFO*,
                   UINT*) override
    {
        if (member != DISPID_HOLVAgentEventChanged) return DISP_E_MEMBERNOTFOUND;
        if (arguments->cArgs != 2) return DISP_E_BADPARAMCOUNT;
        const VARIANTARG* const given = arguments->rgvarg;
        if (given[0].vt != (VT_BYREF | VT_BOOL) || given[1].vt != VT_I4) return DISP_E_TYPEMISMATCH;
        VARIANT_BOOL& cancel = *arguments->rgvarg[0].pboolVal;
        const LONG code = arguments->rgvarg[1].lVal;
        {
            const Hold hold(m_owner.pc);
            std::wstring& heard = m_owner.heard[m_name];
            heard += (heard.empty() ? L"" : L" ") + std::to_wstring(code);
            m_owner.pc.journal.Record("client event", {{"client", m_owner.name},
                                                       {"sink", m_name},
                                                       {"code", std::int64_t{code}},
                                                       {"cancelled", cancel != VARIANT_FALSE}});
        }
        return React(cancel);
    }

private:
    HRESULT React(VARIANT_BOOL& cancel)
    {
        switch (m_reaction) {
            case SinkReaction::none:
                return S_OK;
            case SinkReaction::cancel:
                cancel = VARIANT_TRUE;
                return S_OK;
            case SinkReaction::clear:
                cancel = VARIANT_FALSE;
                return S_OK;
            case SinkReaction::fail:
                return E_FAIL;
            case SinkReaction::call_back:
                return m_owner.Invoke(L"NeverSleepEventCode", DISPATCH_PROPERTYGET, {}).result;
            case SinkReaction::leave:
                return m_owner.Unadvise(m_name).result;
        }
        return S_OK;
    }

    AgentClient::Program& m_owner;
    const std::wstring m_name;
    const SinkReaction m_reaction;
};

AgentClient::Program::Program(Machine& machine, std::wstring_view known_as)
    : pc(machine), name(known_as)
{
}

// The machine has dropped a terminated program's references: to release one would be a call of a
// process that is gone.
AgentClient::Program::~Program() { object.Detach(); }

int AgentClient::Program::Run()
{
    if (FAILED(CoInitialize(nullptr))) return 1;
    ServeMessages();
    Release();
    CoUninitialize();
    return 0;
}

void AgentClient::Program::ServeMessages()
{
    MSG message;
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        if (message.hwnd || message.message != kWork) {
            DispatchMessageW(&message);
            continue;
        }
        work();
        const Hold hold(pc);
        done = true;
    }
}

AgentClient::Answer AgentClient::Program::Do(std::function<Answer()> what)
{
    const auto answer = std::make_shared<Answer>();
    pc.Settle();  // until its message loop runs
    if (!process->running()) return *answer;
    {
        const Hold hold(pc);
        work = [answer, what = std::move(what)] { *answer = what(); };
        done = false;
    }
    PostThreadMessageW(process->first_thread_id(), kWork, 0, 0);
    pc.RunUntil([this] { return done || !process->running(); }, kPatience);
    const Hold hold(pc);
    return done ? *answer : Answer{};
}

AgentClient::Answer AgentClient::Program::Tell(const std::wstring& call, Answer answer) const
{
    const Hold hold(pc);
    pc.journal.Record("client call", {{"client", name},
                                      {"call", call},
                                      {"result", Hexadecimal(answer.result)},
                                      {"answer", answer.text}});
    return answer;
}

HRESULT AgentClient::Program::NeedObject()
{
    if (object) return S_OK;
    CLSID class_id{};
    const HRESULT known = CLSIDFromProgID(kProgId, &class_id);
    if (FAILED(known)) return known;
    return CoCreateInstance(class_id, nullptr, CLSCTX_ALL, IID_IDispatch, ReceiveAny(object));
}

AgentClient::Answer AgentClient::Program::Invoke(std::wstring_view member, WORD flags,
                                                 std::vector<VARIANT> arguments,
                                                 std::vector<VARIANT> places)
{
    for (VARIANT& place : places) {
        VARIANT& argument = arguments.emplace_back();
        argument.vt = static_cast<VARTYPE>(VT_BYREF | place.vt);
        argument.byref = &place.llVal;
    }
    Answer answer;
    answer.result = NeedObject();
    if (FAILED(answer.result)) return answer;
    std::ranges::reverse(arguments);
    std::wstring text(member);
    LPOLESTR member_name = text.data();
    DISPID id = DISPID_UNKNOWN;
    IDispatch& called = *object.Get();
    answer.result = called.GetIDsOfNames(IID_NULL, &member_name, 1, LOCALE_USER_DEFAULT, &id);
    if (SUCCEEDED(answer.result)) {
        DISPID put = DISPID_PROPERTYPUT;
        DISPPARAMS parameters{arguments.data(), &put, static_cast<UINT>(arguments.size()),
                              flags == DISPATCH_PROPERTYPUT ? 1u : 0u};
        VARIANT result{};
        answer.result = called.Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &parameters,
                                      &result, nullptr, nullptr);
        answer.text = TextOf(result);
        VariantClear(&result);
    }
    for (VARIANT& place : places) {
        answer.text += (answer.text.empty() ? L"" : L" ") + TextOf(place);
        VariantClear(&place);
    }
    if (answer.result == kServerUnavailable || answer.result == RPC_E_DISCONNECTED) Release();
    return answer;
}

HRESULT AgentClient::Program::Point(OwnedInterface<IConnectionPoint>& point)
{
    if (const HRESULT needed = NeedObject(); FAILED(needed)) return needed;
    OwnedInterface<IConnectionPointContainer> container;
    const HRESULT asked =
        object.Get()->QueryInterface(IID_IConnectionPointContainer, ReceiveAny(container));
    if (FAILED(asked)) return asked;
    return container.Get()->FindConnectionPoint(DIID__HOLVAgentSinkEvent, point.Receive());
}

AgentClient::Answer AgentClient::Program::Advise(const std::wstring& sink, SinkReaction reaction)
{
    Answer answer;
    OwnedInterface<IConnectionPoint> point;
    answer.result = Point(point);
    if (FAILED(answer.result)) return answer;
    const auto& made = sinks.emplace_back(std::make_unique<Sink>(*this, sink, reaction));
    DWORD cookie = 0;
    answer.result = point.Get()->Advise(made.get(), &cookie);
    if (FAILED(answer.result)) return answer;
    answer.text = std::to_wstring(cookie);
    connected.push_back({sink, cookie});
    return answer;
}

AgentClient::Answer AgentClient::Program::Unadvise(const std::wstring& sink)
{
    Answer answer{CONNECT_E_NOCONNECTION, {}};
    const auto known = std::ranges::find(connected, sink, &Connected::name);
    if (known == connected.end()) return answer;
    const Connected leaving = std::move(*known);
    connected.erase(known);
    OwnedInterface<IConnectionPoint> point;
    answer.result = Point(point);
    if (SUCCEEDED(answer.result)) answer.result = point.Get()->Unadvise(leaving.cookie);
    return answer;
}

void AgentClient::Program::Release()
{
    object.Reset();
    connected.clear();
}

// --- For the driver ---

std::wstring AgentClient::Answer::Words() const
{
    if (FAILED(result)) return Hexadecimal(result);
    return text.empty() ? L"ok" : text;
}

AgentClient::AgentClient(Machine& pc, std::wstring_view name)
    : m_pc(pc), m_program(std::make_shared<Program>(pc, name))
{
    const std::wstring path = LR"(C:\Program Files\Companion\)" + std::wstring(name) + L".exe";
    pc.Install(path, [program = m_program] { return program->Run(); });
    m_program->process = pc.StartInstalled(path, L"\"" + path + L"\"");
}

AgentClient::~AgentClient()
{
    const Hold hold(m_pc);
    m_program->process->Terminate(0);
}

// The functions below capture copies, as the program may run them after Do has given up.

AgentClient::Answer AgentClient::Call(std::wstring_view member, const std::vector<LONG>& numbers,
                                      const std::vector<VARTYPE>& places)
{
    return m_program->Do([program = m_program.get(), name = std::wstring(member), numbers, places] {
        std::wstring told = name;
        std::vector<VARIANT> arguments;
        for (const LONG number : numbers) {
            told += L" " + std::to_wstring(number);
            VARIANT& argument = arguments.emplace_back();
            argument.vt = VT_I4;
            argument.lVal = number;
        }
        std::vector<VARIANT> given(places.size());
        for (std::size_t i = 0; i < places.size(); ++i) given[i].vt = places[i];
        return program->Tell(told, program->Invoke(name, DISPATCH_METHOD, arguments, given));
    });
}

AgentClient::Answer AgentClient::GetProperty(std::wstring_view member)
{
    return m_program->Do([program = m_program.get(), name = std::wstring(member)] {
        return program->Tell(L"get " + name, program->Invoke(name, DISPATCH_PROPERTYGET, {}));
    });
}

AgentClient::Answer AgentClient::PutProperty(std::wstring_view member, LONG value)
{
    return m_program->Do([program = m_program.get(), name = std::wstring(member), value] {
        VARIANT argument{};
        argument.vt = VT_I4;
        argument.lVal = value;
        return program->Tell(L"put " + name + L" " + std::to_wstring(value),
                             program->Invoke(name, DISPATCH_PROPERTYPUT, {argument}));
    });
}

AgentClient::Answer AgentClient::Advise(const std::wstring& sink, SinkReaction reaction)
{
    return m_program->Do([program = m_program.get(), sink, reaction] {
        return program->Tell(L"advise " + sink, program->Advise(sink, reaction));
    });
}

AgentClient::Answer AgentClient::Unadvise(const std::wstring& sink)
{
    return m_program->Do([program = m_program.get(), sink] {
        return program->Tell(L"unadvise " + sink, program->Unadvise(sink));
    });
}

void AgentClient::Release()
{
    m_program->Do([program = m_program.get()] {
        program->Release();
        return Answer{};
    });
    m_pc.Settle();
}

std::wstring AgentClient::Heard(const std::wstring& sink) const
{
    const Hold hold(m_pc);
    const auto known = m_program->heard.find(sink);
    return known != m_program->heard.end() ? known->second : std::wstring();
}

bool AgentClient::Quit()
{
    m_pc.Settle();
    const Process& process = *m_program->process;
    PostThreadMessageW(process.first_thread_id(), WM_QUIT, 0, 0);
    const bool ended = m_pc.RunUntil([&] { return !process.running(); }, kPatience);
    m_pc.Settle();
    return ended;
}

void AgentClient::End()
{
    {
        const Hold hold(m_pc);
        m_program->process->Terminate(1);
    }
    m_pc.Settle();
}
